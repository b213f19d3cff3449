#include "launcher/run/descriptor_passing.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace rovusim {
namespace {

// One byte of payload, and room for one descriptor beside it.
struct Envelope {
    char byte = 'd';
    iovec payload = {};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
};

void prepare(Envelope* envelope) {
    envelope->payload = {&envelope->byte, 1};
    envelope->message.msg_iov = &envelope->payload;
    envelope->message.msg_iovlen = 1;
    envelope->message.msg_control = envelope->control;
    envelope->message.msg_controllen = sizeof envelope->control;
}

}  // namespace

int sendDescriptor(int socket, int fd) {
    Envelope envelope;
    prepare(&envelope);
    cmsghdr* header = CMSG_FIRSTHDR(&envelope.message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof fd);
    std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
    return sendmsg(socket, &envelope.message, MSG_NOSIGNAL) == 1 ? 0 : errno;
}

int receiveDescriptor(int socket, zem::Descriptor* received) {
    Envelope envelope;
    prepare(&envelope);
    ssize_t got = 0;
    do {
        got = recvmsg(socket, &envelope.message, MSG_CMSG_CLOEXEC);
    } while (got < 0 && errno == EINTR);
    if (got < 0) return errno;
    const cmsghdr* header = got == 0 ? nullptr : CMSG_FIRSTHDR(&envelope.message);
    if (header == nullptr || header->cmsg_type != SCM_RIGHTS) return EPIPE;
    int fd = -1;
    std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
    received->reset(fd);
    return 0;
}

}  // namespace rovusim
