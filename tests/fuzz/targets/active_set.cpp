// What fw_printenv prints and, after a NUL, the kernel's command line. The linker leads open() here.

#include "ubi_tools/active_set.h"

#include "fuzz_target.h"
#include "shell_output.h"

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>

namespace {

constexpr uint32_t kUnwritten = 0xDEADBEEF;
constexpr size_t kNameSize = sizeof "bootswitcher=" - 1;
constexpr size_t kMostOutput = 511;  // bytes of the output that are read

MemoryFile* commandLine = nullptr;

int openFor(const char* path, int flags, mode_t mode, int (*real)(const char*, int, ...)) {
    if (commandLine != nullptr && strcmp(path, "/proc/cmdline") == 0) path = commandLine->path().c_str();
    return real(path, flags, mode);
}

constexpr char kHexDigits[] = "0123456789abcdefABCDEF";

// The last two digits of the value, which decide, as a person finds them.
bool isSetOne(std::string value) {
    value = value.substr(value.find_first_not_of(" \t\n\v\f\r"));
    if (value[0] == '+' || value[0] == '-') value.erase(0, 1);
    const bool isPrefixed =
        value[0] == '0' && (value[1] == 'x' || value[1] == 'X') && isxdigit(value[2]) != 0;
    if (isPrefixed) value.erase(0, 2);
    value.resize(value.find_first_not_of(kHexDigits));
    const size_t twoDigits = value.size() < 2 ? 0 : value.size() - 2;
    return value.find_first_not_of('0', twoDigits) != std::string::npos;
}

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_open64(const char* path, int flags, ...);

int __wrap_open(const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    return openFor(path, flags, mode, __real_open);
}

int __wrap_open64(const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    return openFor(path, flags, mode, __real_open64);
}

}  // extern "C"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static MemoryFile* const file = new MemoryFile;
    commandLine = file;
    const void* zero = size == 0 ? nullptr : memchr(data, '\0', size);
    const size_t length =
        zero == nullptr ? size : static_cast<size_t>(static_cast<const uint8_t*>(zero) - data);
    const size_t rest = zero == nullptr ? size : length + 1;
    file->fill(data + rest, size - rest);
    const ShellOutput printed(data, length);

    uint32_t set = kUnwritten;
    const int rc = getActiveSet(&set, false);
    require(rc == 0 ? set <= 1 : rc == ENOKEY && set == kUnwritten, "there is one of two sets, or none");
    if (rc == 0 && length <= kMostOutput) {
        const std::string value(charsOf(data) + kNameSize, length - kNameSize);
        require((set == 1) == isSetOne(value + "\n"), "the lowest byte of the variable decides");
    }

    uint32_t verified = kUnwritten;
    const int verifiedRc = getActiveSet(&verified, true);
    require(verifiedRc == 0 ? rc == 0 && verified == set : verifiedRc == ENOKEY && verified == kUnwritten,
            "the kernel's command line confirms the set or refutes it");
    return 0;
}
