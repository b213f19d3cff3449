#include "rovu_sim/tool_channel.h"

#include "rovu_sim/socket_message.h"
#include "rovu_sim/text_files.h"

#include <cerrno>
#include <sys/mman.h>
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

}  // namespace rovusim
