// Reads volumes out of an image of a flash with UBI on it, as a boot loader does: nothing is attached, and
// nothing is changed.
//
// The layout is that of the Linux kernel's drivers/mtd/ubi/ubi-media.h; all its numbers are big-endian.

#pragma once

#include "disk.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A logical eraseblock (LEB), where the newest valid copy of it lies.
struct LebPlace {
    uint64_t sequence;  // the higher, the newer
    size_t offset;      // of its data in the image, bytes
    uint32_t dataSize;  // bytes of data in a LEB of a static volume
    uint32_t dataCrc;   // of those
    uint32_t usedLebs;  // of the whole static volume
};

/// What a physical eraseblock holds.
struct UbiBlock {
    size_t lebSize;   // bytes
    uint32_t volume;  // the volume's number
    uint32_t leb;
    LebPlace place;
};

/// The volume whose data is the volume table, in two LEBs.
constexpr uint32_t kLayoutVolume = 0x7FFFEFFF;

struct UbiVolume {
    uint32_t id;
    std::string name;
    bool isStatic;
    bool updating;      // an update of it began and did not end
    uint32_t reserved;  // physical eraseblocks
    std::map<uint32_t, LebPlace> lebs;
};

struct UbiImage {
    std::string bytes;
    size_t lebSize = 0;  // bytes
    std::vector<UbiVolume> volumes;
};

/// Reads the headers of the physical eraseblock at `start` in the image of a flash.
/// \return nothing for a block that holds no LEB, or a copy of one that is not whole.
std::optional<UbiBlock> readUbiBlock(std::string_view flash, size_t start, size_t blockSize);

/// Finds the volumes by the blocks of a flash.
/// \return 0; EILSEQ if there is no volume table.
int findUbiVolumes(std::string_view flash, const std::vector<std::optional<UbiBlock>>& blocks,
                   std::vector<UbiVolume>* volumes);

/// Reads an image that is a range of the file at `path`, and finds its volumes.
/// \param blockSize bytes of a physical eraseblock.
/// \return 0; the errno value of the failure to read the file; EILSEQ if there is no UBI on it.
int readUbiImage(const std::string& path, size_t blockSize, UbiImage* image, const ByteRange& range = {});

/// \return the volume of that name; null if there is none.
const UbiVolume* findUbiVolume(const std::vector<UbiVolume>& volumes, const std::string& name);
const UbiVolume* findUbiVolume(const UbiImage& image, const std::string& name);

/// Puts a static volume's data together and verifies every checksum.
/// \return 0; EINVAL if it is dynamic; EILSEQ if an update of it did not end, or a LEB is missing or damaged.
int readStaticVolume(const UbiImage& image, const UbiVolume& volume, std::string* data);
