// Eraseblocks of UBI and copies of the boot loader's environment, made to order as their formats define them.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

constexpr uint32_t kTableVolume = 0x7FFFEFFF;

struct MadeBlock {
    uint32_t volume, leb, sequence;
    std::string data;
    uint32_t usedLebs = 1;
    bool isCopy = false;
    bool isDamaged = false;  // the data does not have its checksum
};

/// The eraseblock, of `size` bytes.
std::string blockImage(const MadeBlock& block, size_t size);

constexpr char kDynamicVolume = 1, kStaticVolume = 2;

struct VolumeRecord {
    std::string name;
    char type;
    bool isUpdating = false;  // an update was begun and not ended
};

/// The data of the volume table, where the first record is that of volume 0.
std::string volumeTable(const std::vector<VolumeRecord>& records);

/// A copy of the environment. `variables` are "NAME=VALUE", with a zero byte between two. The copy with the higher
/// flag is newer. A copy that is not sound has a wrong checksum.
std::string environmentCopy(std::string variables, uint8_t flag, bool isSound = true);
