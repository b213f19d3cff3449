// A copy is the checksum, a flag, and the variables as NAME=VALUE with a NUL after each.

#include "environment.h"

#include "disk.h"

#include <cerrno>
#include <cstdint>

namespace {

// The target VM's fw_env.config has the same places.
constexpr size_t kCopiesAt[] = {0, 0x10000};
constexpr size_t kCopySize = 0x2000;
constexpr size_t kFlagAt = 4;
constexpr size_t kVariablesAt = 5;

bool isSound(std::string_view image, size_t start) {
    if (start + kCopySize > image.size()) return false;
    const char* copy = image.data() + start;
    return word(copy) == ~crc32(copy + kVariablesAt, kCopySize - kVariablesAt);
}

uint8_t flagOf(std::string_view image, size_t start) {
    return static_cast<uint8_t>(image[start + kFlagAt]);
}

// Flags either count up, and wrap, or are 1 for the copy in use and 0 for the other.
bool isNewer(uint8_t flag, uint8_t other) {
    if (flag == 0 && other == UINT8_MAX) return true;
    if (flag == UINT8_MAX && other == 0) return false;
    return flag > other;
}

}  // namespace

int findVariable(std::string_view image, const std::string& name, std::string* value) {
    size_t chosen = image.size();
    for (const size_t start : kCopiesAt) {
        if (!isSound(image, start)) continue;
        if (chosen == image.size() || isNewer(flagOf(image, start), flagOf(image, chosen))) chosen = start;
    }
    if (chosen == image.size()) return EILSEQ;
    const std::string variables =
        std::string(1, '\0').append(image.substr(chosen + kVariablesAt, kCopySize - kVariablesAt));
    const std::string key = std::string(1, '\0') + name + "=";
    const size_t found = variables.find(key);
    if (found == std::string::npos) return ENOENT;
    *value = variables.c_str() + found + key.size();
    return 0;
}

int readVariable(const std::string& path, const std::string& name, std::string* value,
                 const ByteRange& range) {
    std::string image;
    if (int rc = readBytes(path, range, &image); rc != 0) return rc;
    return findVariable(image, name, value);
}
