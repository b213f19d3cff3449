#include "rovu_sim/tool_channel.h"

#include "rovu_sim/text_files.h"

#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <utility>

namespace rovusim {
namespace {

constexpr size_t kMostBytes = 1 << 20;  // of a command line, each word with its NUL
constexpr char kGreeting = 't';

int readWords(int memory, std::vector<std::string>* words) {
    // A reader that the peer can still change is harmless: it is read once, to its size at this moment.
    struct stat info;
    if (fstat(memory, &info) != 0) return errno;
    const auto size = static_cast<size_t>(info.st_size);
    if (!S_ISREG(info.st_mode) || size == 0 || size > kMostBytes) return EILSEQ;
    std::string all(size, '\0');
    const ssize_t got = pread(memory, all.data(), size, 0);
    if (got < 0) return errno;
    if (static_cast<size_t>(got) != size || all.back() != '\0') return EILSEQ;
    for (size_t start = 0; start < size; start = all.find('\0', start) + 1)
        words->emplace_back(all.c_str() + start);
    return 0;
}

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

int sendRequest(int socket, const ToolRequest& request) {
    std::string all;
    for (const std::string& word : request.words)
        all.append(word).push_back('\0');
    if (all.size() > kMostBytes) return E2BIG;
    const zem::Descriptor memory(memfd_create("words", MFD_CLOEXEC));
    if (!memory.isOpen()) return errno;
    if (int rc = writeFully(memory.get(), all.data(), all.size()); rc != 0) return rc;
    std::vector<int> passed = {memory.get(), request.input.get(), request.output.get(), request.errors.get()};
    if (request.image.isOpen()) passed.push_back(request.image.get());
    return sendMessage(socket, &kGreeting, 1, passed);
}

int receiveRequest(int socket, ToolRequest* request) {
    char greeting = 0;
    std::vector<zem::Descriptor> passed;
    if (int rc = receiveMessage(socket, &greeting, 1, &passed); rc != 0) return rc;
    if (greeting != kGreeting || passed.size() < 4 || passed.size() > 5) return EILSEQ;
    if (int rc = readWords(passed[0].get(), &request->words); rc != 0) return rc;
    request->input = std::move(passed[1]);
    request->output = std::move(passed[2]);
    request->errors = std::move(passed[3]);
    if (passed.size() == 5) request->image = std::move(passed[4]);
    return 0;
}

int sendReply(int socket, const ToolReply& reply) {
    return sendMessage(socket, &reply, sizeof reply, {});
}

int receiveReply(int socket, ToolReply* reply) {
    std::vector<zem::Descriptor> none;
    return receiveMessage(socket, reply, sizeof *reply, &none);
}

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
