#include "rovu_sim/socket_message.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace rovusim {
namespace {

constexpr size_t kMostDescriptors = 64;

struct Envelope {
    iovec payload = {};
    alignas(cmsghdr) char control[CMSG_SPACE(kMostDescriptors * sizeof(int))] = {};
    msghdr message = {};
};

void address(Envelope* envelope, void* bytes, size_t size, size_t controlSize) {
    envelope->payload = {bytes, size};
    envelope->message.msg_iov = &envelope->payload;
    envelope->message.msg_iovlen = 1;
    if (controlSize == 0) return;
    envelope->message.msg_control = envelope->control;
    envelope->message.msg_controllen = controlSize;
}

// Whatever else is wrong with a message, its descriptors are this process's to close.
void takeDescriptors(msghdr* message, std::vector<zem::Descriptor>* descriptors) {
    for (cmsghdr* header = CMSG_FIRSTHDR(message); header != nullptr; header = CMSG_NXTHDR(message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(header) + i * sizeof fd, sizeof fd);
            descriptors->emplace_back(fd);
        }
    }
}

}  // namespace

int sendMessage(int socket, const void* bytes, size_t size, const std::vector<int>& descriptors) {
    const size_t length = descriptors.size() * sizeof(int);
    if (descriptors.size() > kMostDescriptors) return E2BIG;
    Envelope envelope;
    address(&envelope, const_cast<void*>(bytes), size, length == 0 ? 0 : CMSG_SPACE(length));
    if (length != 0) {
        cmsghdr* header = CMSG_FIRSTHDR(&envelope.message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(length);
        std::memcpy(CMSG_DATA(header), descriptors.data(), length);
    }
    ssize_t sent = 0;
    do {
        sent = sendmsg(socket, &envelope.message, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent < 0) return errno;
    return static_cast<size_t>(sent) == size ? 0 : EPIPE;
}

int receiveMessage(int socket, void* bytes, size_t size, std::vector<zem::Descriptor>* descriptors) {
    Envelope envelope;
    address(&envelope, bytes, size, sizeof envelope.control);
    ssize_t got = 0;
    do {
        got = recvmsg(socket, &envelope.message, MSG_CMSG_CLOEXEC);
    } while (got < 0 && errno == EINTR);
    if (got < 0) return errno;
    descriptors->clear();
    takeDescriptors(&envelope.message, descriptors);
    const bool whole = static_cast<size_t>(got) == size && (envelope.message.msg_flags & MSG_TRUNC) == 0;
    return whole ? 0 : EPIPE;
}

}  // namespace rovusim
