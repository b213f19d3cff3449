// The fields are scanned here and not by sscanf, whose result for a number that a word cannot hold depends on the
// width of `long`: a field must be clamped, and never wrap to a low version.

#include "util/version.h"

#include <cerrno>
#include <cstdio>

namespace {

constexpr uint32_t kMaxField = 0xFFFF;
constexpr int kFieldCount = 4;
constexpr int kFieldBits = 16;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

uint32_t scanField(const char** next) {
    uint32_t value = 0;
    for (; isDigit(**next); ++*next) {
        value = value * 10 + static_cast<uint32_t>(**next - '0');
        if (value > kMaxField) value = kMaxField;
    }
    return value;
}

unsigned int field(PackedVersion version, int index) {
    return static_cast<unsigned int>(version >> (kFieldBits * (kFieldCount - 1 - index))) & kMaxField;
}

}  // namespace

int parseVersion(PackedVersion* out, const char* string) {
    for (const char* c = string; *c != '\0'; ++c) {
        if (!isDigit(*c) && *c != '.') return EILSEQ;
    }
    if (!isDigit(*string)) return EINVAL;

    PackedVersion version = 0;
    const char* next = string;
    for (int i = 0; i < kFieldCount; ++i) {
        uint32_t value = 0;
        if (isDigit(*next)) {
            value = scanField(&next);
            // A field that no dot or no digit follows is the last one: nothing after it counts.
            next = *next == '.' ? next + 1 : "";
        } else {
            next = "";
        }
        version = version << kFieldBits | value;
    }
    *out = version;
    return 0;
}

char* formatVersion(PackedVersion version, char* destination, size_t size) {
    snprintf(destination, size, "%u.%u.%u.%u", field(version, 0), field(version, 1), field(version, 2),
             field(version, 3));
    return destination;
}
