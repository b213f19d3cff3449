// The code that plays the boot loader, on images that a power cut or wear-levelling may leave.

#include "environment.h"
#include "flash_format.h"
#include "support/scratch.h"
#include "ubi_image.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace {

constexpr size_t kBlock = 32768;  // bytes: the volume table must fit

// Reads k0, which is volume 0, from a flash with these blocks and a table.
int readFlash(std::vector<MadeBlock> blocks, bool isUpdating, std::string* data) {
    const ScratchDir scratch;
    const std::string path = scratch.path + "/flash";
    blocks.push_back(
        {kTableVolume, 0, 1, volumeTable({{"k0", kStaticVolume, isUpdating}, {"k0_data", kDynamicVolume}})});
    std::string flash(kBlock, '\xFF');  // a block that was never written
    for (const MadeBlock& block : blocks)
        flash += blockImage(block, kBlock);
    writeWholeFile(path, flash);
    UbiImage image;
    if (int rc = readUbiImage(path, kBlock, &image); rc != 0) return rc;
    const UbiVolume* volume = findUbiVolume(image, "k0");
    return volume == nullptr ? ENOENT : readStaticVolume(image, *volume, data);
}

int readEnvironment(std::string first, std::string second, std::string* value) {
    const ScratchDir scratch;
    for (std::string* copy : {&first, &second})
        copy->resize(0x10000, '\xFF');
    writeWholeFile(scratch.path + "/env", first + second);
    return readVariable(scratch.path + "/env", "bootswitcher", value);
}

const std::string kSet0 = "bootswitcher=0A0A00", kSet1 = "bootswitcher=0A0A01";

}  // namespace

TEST(BootLoader, ReadsAVolumeFromTheNewestWholeBlocksOrNotAtAll) {
    const MadeBlock whole = {0, 0, 5, "whole"};
    const struct {
        const char* name;
        std::vector<MadeBlock> blocks;
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
    const std::string damagedSet1 = environmentCopy(kSet1, 2, false);
    const struct {
        const char* name;
        std::string first, second;
        int result;
        std::string value;
    } rows[] = {
        {"second is newer", environmentCopy(kSet0, 1), environmentCopy(kSet1, 2), 0, "0A0A01"},
        {"first is newer", environmentCopy(kSet0, 3), environmentCopy(kSet1, 2), 0, "0A0A00"},
        {"the count wraps", environmentCopy(kSet0, 255), environmentCopy(kSet1, 0), 0, "0A0A01"},
        {"newer is damaged", environmentCopy(kSet0, 1), damagedSet1, 0, "0A0A00"},
        {"both are damaged", environmentCopy(kSet0, 1, false), damagedSet1, EILSEQ, ""},
        {"end of another name", environmentCopy("old" + kSet0, 1), environmentCopy(kSet1, 0), ENOENT, ""},
        {"in another value", environmentCopy("a=bootswitcher=2" + std::string(1, '\0') + kSet1, 1),
         environmentCopy(kSet0, 0), 0, "0A0A01"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::string value;
        EXPECT_EQ(readEnvironment(row.first, row.second, &value), row.result);
        EXPECT_EQ(value, row.value);
    }
}
