// Reads volumes out of an image of a flash with UBI on it, as a boot loader does: nothing is attached, and
// nothing is changed.
//
// The layout is that of the Linux kernel's drivers/mtd/ubi/ubi-media.h; all its numbers are big-endian.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// A logical eraseblock (LEB), where the newest valid copy of it lies.
struct LebPlace {
    uint64_t sequence;  // the higher, the newer
    size_t offset;      // of its data in the image, bytes
    uint32_t dataSize;  // bytes of data in a LEB of a static volume
    uint32_t dataCrc;   // of those
    uint32_t usedLebs;  // of the whole static volume
};

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

/// Reads the file at `path` and finds its volumes.
/// \param blockSize bytes of a physical eraseblock.
/// \return 0; the errno value of the file's reading; EILSEQ if there is no UBI on it.
int readUbiImage(const std::string& path, size_t blockSize, UbiImage* image);

/// \return the volume of that name; null if there is none.
const UbiVolume* findUbiVolume(const UbiImage& image, const std::string& name);

/// Puts a static volume's data together and verifies every sum.
/// \return 0; EINVAL if it is dynamic; EILSEQ if an update of it did not end, or a LEB is missing or damaged.
int readStaticVolume(const UbiImage& image, const UbiVolume& volume, std::string* data);
