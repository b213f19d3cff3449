// Runs the device program's stages on a spec, with its log caught. That program keeps the key's path in a
// variable of the process, and opens it: the key lies in memory, under a path of the system's own.

#include "spec_trial.h"

#include "logging/log.h"
#include "settings.h"
#include "spec_reader.h"
#include "spec_text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr size_t kRoomForWrap = 16;
constexpr char kTextName[] = "update.lua";  // in the device's messages

// The device's messages of a lifetime.
class CaughtLog {
public:
    CaughtLog() : stream(open_memstream(&bytes, &size)) {
        channel = LOG_channel_new(stream, "pack");
        if (channel == nullptr) return;
        LOG_channel_set_levels(channel, LOG_LVL_ERROR | LOG_LVL_WARNING);
        LOG_channel_apply(channel);
    }
    ~CaughtLog() {
        LOG_channel_free(channel);
        if (stream != nullptr) fclose(stream);
        free(bytes);
    }
    CaughtLog(const CaughtLog&) = delete;
    CaughtLog& operator=(const CaughtLog&) = delete;

    // The first message without its head. The first names the cause.
    std::string firstMessage() {
        if (stream != nullptr) fflush(stream);
        std::string text = bytes == nullptr ? "" : std::string(bytes, size);
        text = text.substr(0, text.find('\n'));
        const size_t head = text.find("]: ");
        return head == std::string::npos ? text : text.substr(head + 3);
    }

private:
    char* bytes = nullptr;
    size_t size = 0;
    FILE* stream;
    LOG_Channel* channel = nullptr;
};

// The public key as a file, under the path that the device's code reads.
class KeyInMemory {
public:
    explicit KeyInMemory(const std::string& pem) : fd(memfd_create("key", MFD_CLOEXEC)), oldPath(keyPath) {
        path = "/proc/self/fd/" + std::to_string(fd);
        good = fd >= 0 && write(fd, pem.data(), pem.size()) == static_cast<ssize_t>(pem.size());
        keyPath = path.c_str();
    }
    ~KeyInMemory() {
        keyPath = oldPath;
        if (fd >= 0) close(fd);
    }
    KeyInMemory(const KeyInMemory&) = delete;
    KeyInMemory& operator=(const KeyInMemory&) = delete;

    bool good;

private:
    int fd;
    const char* oldPath;
    std::string path;
};

bool fill(SpecBuffer* buffer, const std::string& spec) {
    buffer->fileSize = spec.size();
    buffer->capacity = spec.size() + kRoomForWrap;
    buffer->bytes = static_cast<char*>(malloc(buffer->capacity));
    if (buffer->bytes == nullptr) return false;
    memcpy(buffer->bytes, spec.data(), spec.size());
    return true;
}

bool deviceAccepts(const std::string& spec, const std::string& publicPem) {
    SpecBuffer buffer;
    const KeyInMemory key(publicPem);
    if (!key.good || !fill(&buffer, spec)) return false;
    if (!authenticateSpec(kTextName, &buffer)) return false;
    lua_State* L = evaluateSpec(&buffer);
    if (L == nullptr) return false;
    UpdateSpecVer1* record = readSpec(L);
    const bool accepted = record != nullptr;
    freeSpec(record);
    return accepted;
}

}  // namespace

int tryOnDevice(const std::string& spec, const std::string& publicPem, std::string* error) {
    if (spec.size() > kMaxSpecSize) {
        *error = "the spec has " + std::to_string(spec.size()) +
                 " bytes with its signature, and a device takes " + std::to_string(kMaxSpecSize);
        return EINVAL;
    }
    CaughtLog log;
    if (deviceAccepts(spec, publicPem)) return 0;
    *error = "the device refuses the spec: " + log.firstMessage();
    if (spec.find("function") != std::string::npos) *error += " (the word \"function\" stands in it)";
    return EINVAL;
}
