#include "support/reference_file.h"

#include <cstdio>

uint32_t fletcher32(const std::string& bytes) {
    // Both sums are modulo 65535, with 65535 in the place of 0.
    uint32_t first = 0, second = 0;
    for (size_t i = 0; i < bytes.size(); i += 2) {
        const uint32_t high = static_cast<unsigned char>(bytes[i]);
        const uint32_t low = i + 1 < bytes.size() ? static_cast<unsigned char>(bytes[i + 1]) : 0;
        first = (first + (high << 8 | low)) % 65535;
        second = (second + first) % 65535;
    }
    return (second == 0 ? 65535 : second) << 16 | (first == 0 ? 65535 : first);
}

std::string referenceFile(const std::string& lines) {
    char line[32];
    snprintf(line, sizeof line, "#FLET32:%08x\n", static_cast<unsigned int>(fletcher32(lines)));
    return lines + line;
}
