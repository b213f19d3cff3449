// What plays the boot loader, on images that a power cut or wear-levelling may leave.

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
    bool isDamaged = false;  // the data is not what its sum says
};

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

// The flash with these blocks and a table; what reading k0 from it gives, and its data.
int readFlash(std::vector<Block> blocks, std::string* data, char updating = 0) {
    const ScratchDir scratch;
    blocks.push_back({kTableVolume, 0, 1, table(updating)});
    std::string flash(kBlock, '\xFF');  // one that nobody has written
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
        const uint32_t sum = ~crc32(variables.data(), variables.size()) ^ (copy.isSound ? 0 : 1);
        image += be32(sum) + static_cast<char>(copy.flag) + variables;
        image.resize((image.size() / 0x10000 + 1) * 0x10000, '\xFF');
    }
    return image;
}

const char kSet0[] = "bootswitcher=0A0A00";
const char kSet1[] = "bootswitcher=0A0A01";

}  // namespace

TEST(BootLoader, TakesTheNewestWholeCopyOfEveryBlock) {
    std::string data;
    EXPECT_EQ(
        readFlash({{0, 1, 8, "tail", 2}, {0, 0, 5, "old ", 2}, {0, 0, 9, "new ", 2}, {0, 1, 7, "xxxx", 2}},
                  &data),
        0);
    EXPECT_EQ(data, "new tail");
    data.clear();  // wear-levelling was cut off in the middle of a copy
    EXPECT_EQ(readFlash({{0, 0, 5, "whole"}, {0, 0, 9, "whole", 1, true, true}}, &data), 0);
    EXPECT_EQ(data, "whole");
}

TEST(BootLoader, RefusesAVolumeThatIsNotWhole) {
    std::string data;
    EXPECT_EQ(readFlash({{0, 0, 5, "kernel", 2}}, &data), EILSEQ) << "a block is missing";
    EXPECT_EQ(readFlash({{0, 0, 5, "kernel", 1, false, true}}, &data), EILSEQ) << "damaged";
    EXPECT_EQ(readFlash({{0, 0, 5, "kernel"}}, &data, 1), EILSEQ) << "its update did not end";
    EXPECT_EQ(readFlash({}, &data), EILSEQ) << "nothing was ever written";
}

TEST(BootLoader, TakesTheNewerSoundCopyOfTheEnvironment) {
    const struct {
        Copy first, second;
        int rc;
        std::string value;
    } rows[] = {
        {{1, kSet0}, {2, kSet1}, 0, "0A0A01"},
        {{3, kSet0}, {2, kSet1}, 0, "0A0A00"},
        {{255, kSet0}, {0, kSet1}, 0, "0A0A01"},  // the count wraps
        {{1, kSet0}, {2, kSet1, false}, 0, "0A0A00"},
        {{1, kSet0, false}, {2, kSet1, false}, EILSEQ, ""},
        {{1, "old" + std::string(kSet0)}, {0, kSet1}, ENOENT, ""},  // another variable whose name ends so
        {{1, "a=bootswitcher=2" + std::string(1, '\0') + kSet1}, {0, kSet0}, 0, "0A0A01"},
    };
    for (const auto& row : rows) {
        std::string value;
        EXPECT_EQ(valueOf(environmentImage(row.first, row.second), &value), row.rc) << &row - rows;
        EXPECT_EQ(value, row.value) << &row - rows;
    }
}
