// The active set by two independent sources, which must agree: what the boot loader would start, and
// what was really started.

#include "ubi_tools/active_set.h"

#include "log_module.h"
#include "util/command.h"
#include "util/file.h"

#include <cctype>
#include <cerrno>
#include <cstring>

namespace {

constexpr uint32_t kBufferSize = 512;
constexpr char kVariablePrefix[] = "bootswitcher=";

unsigned int hexDigitValue(char digit) {
    if (digit <= '9') return static_cast<unsigned int>(digit - '0');
    return static_cast<unsigned int>(tolower(static_cast<unsigned char>(digit)) - 'a') + 10;
}

bool isHexDigit(char c) {
    return isxdigit(static_cast<unsigned char>(c)) != 0;
}

// Matches the output against "bootswitcher=%x". The value may have any number of digits; the lowest byte
// is all that is kept, so a value wider than a word reads the same on every processor.
bool scanVariable(const char* output, unsigned int* lowestByte) {
    if (strncmp(output, kVariablePrefix, sizeof kVariablePrefix - 1) != 0) return false;
    const char* digit = output + sizeof kVariablePrefix - 1;
    while (isspace(static_cast<unsigned char>(*digit)) != 0)
        ++digit;
    // A sign does not change whether the lowest byte is 0.
    if (*digit == '+' || *digit == '-') ++digit;
    if (digit[0] == '0' && (digit[1] == 'x' || digit[1] == 'X') && isHexDigit(digit[2])) digit += 2;
    if (!isHexDigit(*digit)) return false;
    unsigned int value = 0;
    for (; isHexDigit(*digit); ++digit)
        value = (value << 4 | hexDigitValue(*digit)) & 0xFF;
    *lowestByte = value;
    return true;
}

bool holds(const char* bytes, uint32_t size, const char* name) {
    return memmem(bytes, size, name, strlen(name)) != nullptr;
}

bool findKernelSet(const char* commandLine, uint32_t size, uint32_t* set) {
    if (holds(commandLine, size, "k0_root") && holds(commandLine, size, "k0_data")) {
        *set = 0;
        return true;
    }
    if (holds(commandLine, size, "k1_root") && holds(commandLine, size, "k1_data")) {
        *set = 1;
        return true;
    }
    return false;
}

}  // namespace

int getActiveSet(uint32_t* set, bool verify) {
    char buffer[kBufferSize];
    int exitStatus = 0;
    unsigned int lowestByte = 0;
    const int32_t got = runCommandF(buffer, sizeof buffer, &exitStatus, nullptr, "fw_printenv bootswitcher");
    if (got < 0 || exitStatus != 0 || !scanVariable(buffer, &lowestByte)) {
        LOG_MSG(LOG_LVL_ERROR, "Failed to read bootswitcher state (%d, %d).", got, exitStatus);
        return ENOKEY;
    }
    const uint32_t bootLoaderSet = lowestByte == 0 ? 0 : 1;
    if (!verify) {
        *set = bootLoaderSet;
        return 0;
    }

    uint32_t size = 0;
    if (int rc = readFile("/proc/cmdline", buffer, sizeof buffer, &size); rc != 0) {
        LOG_MSG(LOG_LVL_ERROR, "Failed to read kernel command line: %d", rc);
        return rc;
    }
    uint32_t kernelSet = 0;
    if (!findKernelSet(buffer, size, &kernelSet)) {
        LOG_MSG(LOG_LVL_ERROR, "Can't detect active set from kernel command line");
        return ENOKEY;
    }
    if (kernelSet != bootLoaderSet) {
        LOG_MSG(LOG_LVL_ERROR, "Inconsistent state between bootswitcher and running kernel.");
        return ENOKEY;
    }
    *set = kernelSet;
    return 0;
}
