// Which copy of the boot loader's environment counts after a power cut in its change.

#include "disk.h"
#include "environment.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace {

std::string bigEndian(size_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

std::string environment(std::string variables, uint8_t flag, bool isSound = true) {
    variables.resize(0x2000 - 5);
    const uint32_t checksum = ~crc32(variables.data(), variables.size()) ^ (isSound ? 0 : 1);
    return (bigEndian(checksum) + static_cast<char>(flag) + variables).append(0x10000 - 0x2000, '\xFF');
}

}  // namespace

TEST(BootLoader, TakesTheNewerSoundCopyOfTheEnvironment) {
    const std::string set0 = "bootswitcher=0A0A00", set1 = "bootswitcher=0A0A01";
    const struct {
        const char* name;
        std::string copies, value;
        int result = 0;
    } rows[] = {
        {"second is newer", environment(set0, 1) + environment(set1, 2), "0A0A01"},
        {"first is newer", environment(set0, 3) + environment(set1, 2), "0A0A00"},
        {"the count wraps", environment(set0, 255) + environment(set1, 0), "0A0A01"},
        {"newer is damaged", environment(set0, 1) + environment(set1, 2, false), "0A0A00"},
        {"both are damaged", environment(set0, 1, false) + environment(set1, 2, false), "", EILSEQ},
        {"end of another name", environment("old" + set0, 1) + environment(set1, 0), "", ENOENT},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::string value;
        EXPECT_EQ(findVariable(row.copies, "bootswitcher", &value), row.result);
        EXPECT_EQ(value, row.value);
    }
}
