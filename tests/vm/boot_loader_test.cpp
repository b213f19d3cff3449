// The code that plays the boot loader, on images that a power cut or wear-levelling may leave. They are made as the
// formats of UBI and of the boot loader's environment define them.

#include "environment.h"
#include "support/scratch.h"
#include "ubi_image.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace {

constexpr size_t kBlockSize = 32768;  // bytes: the volume table must fit

std::string bigEndian(size_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

std::string crcOf(const std::string& bytes) {
    return bigEndian(crc32(bytes.data(), bytes.size()));
}

// With zeros up to `size` and the checksum after them.
std::string withCrc(std::string bytes, size_t size) {
    bytes.resize(size);
    return bytes + crcOf(bytes);
}

struct Block {
    uint32_t volume, leb, sequence;
    std::string data;
    uint32_t usedLebs = 1;
    bool isCopy = false, isDamaged = false;
};

std::string bytesOf(const Block& block) {
    const std::string zeros(8, '\0'), type = {1, 1, static_cast<char>(block.isCopy), 0};
    std::string bytes = withCrc("UBI#" + zeros + bigEndian(0) + bigEndian(64) + bigEndian(128), 60) +
                        withCrc("UBI!" + type + bigEndian(block.volume) + bigEndian(block.leb) +
                                    bigEndian(0) + bigEndian(block.data.size()) + bigEndian(block.usedLebs) +
                                    bigEndian(0) + crcOf(block.data) + zeros + bigEndian(block.sequence),
                                60) +
                        block.data;
    if (block.isDamaged) bytes.back() = static_cast<char>(~bytes.back());
    bytes.resize(kBlockSize, '\xFF');
    return bytes;
}

// Reads k0, a static volume that is the only one, from a flash with these blocks.
int readFlash(const std::vector<Block>& blocks, bool isUpdating, std::string* data) {
    const std::string type = {2, static_cast<char>(isUpdating), 0, 2};
    std::string table = withCrc(bigEndian(4) + bigEndian(1) + bigEndian(0) + type + "k0", 168);
    for (size_t id = 1; id < 128; ++id)
        table += withCrc("", 168);
    std::string flash(kBlockSize, '\xFF');  // a block that was never written
    flash += bytesOf({kLayoutVolume, 0, 1, table});
    for (const Block& block : blocks)
        flash += bytesOf(block);
    const ScratchDir scratch;
    writeWholeFile(scratch.path + "/flash", flash);
    UbiImage image;
    if (int rc = readUbiImage(scratch.path + "/flash", kBlockSize, &image); rc != 0) return rc;
    const UbiVolume* volume = findUbiVolume(image, "k0");
    return volume == nullptr ? ENOENT : readStaticVolume(image, *volume, data);
}

std::string environment(std::string variables, uint8_t flag, bool isSound = true) {
    variables.resize(0x2000 - 5);
    const uint32_t checksum = ~crc32(variables.data(), variables.size()) ^ (isSound ? 0 : 1);
    return (bigEndian(checksum) + static_cast<char>(flag) + variables).append(0x10000 - 0x2000, '\xFF');
}

}  // namespace

TEST(BootLoader, ReadsAVolumeFromTheNewestWholeBlocksOrNotAtAll) {
    const Block whole = {0, 0, 5, "whole"};
    const struct {
        const char* name;
        std::vector<Block> blocks;
        bool isUpdating;
        int result;
        std::string data;
    } rows[] = {
        {"newest of all copies",
         {{0, 1, 8, "tail", 2}, {0, 0, 5, "old ", 2}, {0, 0, 9, "new ", 2}, {0, 1, 7, "xxxx", 2}},
         false,
         0,
         "new tail"},
        {"wear-levelling cut off in a copy", {whole, {0, 0, 9, "whole", 1, true, true}}, false, 0, "whole"},
        {"a block is missing", {{0, 0, 5, "kernel", 2}}, false, EILSEQ, ""},
        {"damaged block", {{0, 0, 5, "kernel", 1, false, true}}, false, EILSEQ, ""},
        {"update did not end", {whole}, true, EILSEQ, ""},
        {"never written", {}, false, EILSEQ, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::string data;
        EXPECT_EQ(readFlash(row.blocks, row.isUpdating, &data), row.result);
        EXPECT_TRUE(row.result != 0 || data == row.data) << data;
    }
}

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
