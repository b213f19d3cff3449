// The code that plays the boot loader, on images that a power cut or wear-levelling may leave.

#include "environment.h"
#include "image_bytes.h"
#include "support/scratch.h"
#include "ubi_image.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace {

constexpr size_t kBlock = 32768;  // bytes: the volume table must fit
constexpr size_t kTableSize = size_t{128} * 172;
constexpr uint32_t kTableVolume = 0x7FFFEFFF;

std::string be32(uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

std::string withCrc(std::string bytes, size_t sizeBefore) {
    bytes.resize(sizeBefore);
    return bytes + be32(crc32(bytes.data(), bytes.size()));
}

struct Block {
    uint32_t volume;
    uint32_t leb;
    uint32_t sequence;
    std::string data;
    uint32_t usedLebs = 1;
    bool isCopy = false;
    bool isDamaged = false;  // the data does not have its checksum
};

// A block of volume k0, which has the id 0.
Block block(uint32_t leb, uint32_t sequence, const std::string& data, uint32_t usedLebs = 1) {
    return {0, leb, sequence, data, usedLebs};
}

Block damaged(Block block) {
    block.isDamaged = true;
    return block;
}

Block copied(Block block) {
    block.isCopy = true;
    return block;
}

std::string blockImage(const Block& block) {
    std::string bytes =
        withCrc("UBI#" + std::string("\1\0\0\0", 4) + std::string(8, '\0') + be32(64) + be32(128), 60);
    std::string header = "UBI!" + std::string("\1\1", 2) + (block.isCopy ? '\1' : '\0') + '\0' +
                         be32(block.volume) + be32(block.leb) + be32(0) +
                         be32(static_cast<uint32_t>(block.data.size())) + be32(block.usedLebs) + be32(0) +
                         be32(crc32(block.data.data(), block.data.size())) + be32(0) + be32(0) +
                         be32(block.sequence);
    bytes += withCrc(header, 60) + block.data;
    if (block.isDamaged) bytes.back() = static_cast<char>(~bytes.back());
    bytes.resize(kBlock, '\xFF');
    return bytes;
}

std::string record(const std::string& name, char type, char updating) {
    std::string bytes = be32(4) + be32(1) + be32(0) + type + updating;
    bytes += be32(static_cast<uint32_t>(name.size())).substr(2) + name;
    return withCrc(bytes, 168);
}

// A static volume 0, a dynamic volume 1, and no more.
std::string table(char updating = 0) {
    std::string bytes = record("k0", 2, updating) + record("k0_data", 1, 0);
    while (bytes.size() < kTableSize)
        bytes += withCrc("", 168);
    return bytes;
}

// Reads k0 from a flash with these blocks and a table. `updating`: an update of k0 was begun and not ended.
int readFlash(std::vector<Block> blocks, std::string* data, char updating = 0) {
    const ScratchDir scratch;
    blocks.push_back({kTableVolume, 0, 1, table(updating)});
    std::string flash(kBlock, '\xFF');  // a block that was never written
    for (const Block& block : blocks)
        flash += blockImage(block);
    writeWholeFile(scratch.path + "/flash", flash);
    UbiImage image;
    if (int rc = readUbiImage(scratch.path + "/flash", kBlock, &image); rc != 0) return rc;
    const UbiVolume* volume = findUbiVolume(image, "k0");
    return volume == nullptr ? ENOENT : readStaticVolume(image, *volume, data);
}

int valueOf(const std::string& environment, std::string* value) {
    const ScratchDir scratch;
    writeWholeFile(scratch.path + "/env", environment);
    return readVariable(scratch.path + "/env", "bootswitcher", value);
}

struct Copy {
    uint8_t flag;
    std::string variables;
    bool isSound = true;
};

std::string environmentImage(const Copy& first, const Copy& second) {
    std::string image;
    for (const Copy& copy : {first, second}) {
        std::string variables = copy.variables;
        variables.resize(0x2000 - 5, '\0');
        const uint32_t checksum = ~crc32(variables.data(), variables.size()) ^ (copy.isSound ? 0 : 1);
        image += be32(checksum) + static_cast<char>(copy.flag) + variables;
        image.resize((image.size() / 0x10000 + 1) * 0x10000, '\xFF');
    }
    return image;
}

const char kSet0[] = "bootswitcher=0A0A00";
const char kSet1[] = "bootswitcher=0A0A01";

}  // namespace

TEST(BootLoader, ReadsAVolumeFromTheNewestWholeBlocksOrNotAtAll) {
    constexpr char kComplete = 0, kUpdating = 1;
    const struct {
        const char* name;
        std::vector<Block> blocks;
        char state;
        int result;
        std::string data;
    } rows[] = {
        {"newest of all copies",
         {block(1, 8, "tail", 2), block(0, 5, "old ", 2), block(0, 9, "new ", 2), block(1, 7, "xxxx", 2)},
         kComplete,
         0,
         "new tail"},
        {"wear-levelling cut off in a copy",
         {block(0, 5, "whole"), copied(damaged(block(0, 9, "whole")))},
         kComplete,
         0,
         "whole"},
        {"a block is missing", {block(0, 5, "kernel", 2)}, kComplete, EILSEQ, ""},
        {"damaged block", {damaged(block(0, 5, "kernel"))}, kComplete, EILSEQ, ""},
        {"update did not end", {block(0, 5, "kernel")}, kUpdating, EILSEQ, ""},
        {"never written", {}, kComplete, EILSEQ, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::string data;
        EXPECT_EQ(readFlash(row.blocks, &data, row.state), row.result);
        EXPECT_TRUE(row.result != 0 || data == row.data) << data;
    }
}

TEST(BootLoader, TakesTheNewerSoundCopyOfTheEnvironment) {
    const Copy damagedSet1 = {2, kSet1, false};
    const struct {
        const char* name;
        Copy first, second;
        int result;
        std::string value;
    } rows[] = {
        {"second is newer", {1, kSet0}, {2, kSet1}, 0, "0A0A01"},
        {"first is newer", {3, kSet0}, {2, kSet1}, 0, "0A0A00"},
        {"the count wraps", {255, kSet0}, {0, kSet1}, 0, "0A0A01"},
        {"newer is damaged", {1, kSet0}, damagedSet1, 0, "0A0A00"},
        {"both are damaged", {1, kSet0, false}, damagedSet1, EILSEQ, ""},
        {"end of another name", {1, "old" + std::string(kSet0)}, {0, kSet1}, ENOENT, ""},
        {"in another value", {1, "a=bootswitcher=2" + std::string(1, '\0') + kSet1}, {0, kSet0}, 0, "0A0A01"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::string value;
        EXPECT_EQ(valueOf(environmentImage(row.first, row.second), &value), row.result);
        EXPECT_EQ(value, row.value);
    }
}
