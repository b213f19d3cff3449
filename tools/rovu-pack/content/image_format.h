// The format of an image, by the bytes at its beginning.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// Most bytes of an image that findFormat() looks at.
constexpr size_t kFormatHead = 65536;

/// The use of a format on a device that starts a kernel from one volume and mounts another.
enum FormatUse {
    eUnknownUse,   // unknown: it may be anything
    eBootable,     // a boot loader starts it
    eBundle,       // a kernel, a root file system or both, in the boot loader's own format
    eFileSystem,   // Linux mounts it
    eBlockSystem,  // the same, from a block device that can be written
    eFlashSystem,  // Linux mounts it, and some boot loaders read files of it
    eRamDisk,      // a boot loader passes it to the kernel
    eCompressed,   // what it holds is not known
    eVolumes,      // volumes with their flash's own headers, not what one of them holds
    eText,         // characters alone
    eNoImage,      // neither boots nor is mounted
};

struct ImageFormat {
    FormatUse use = eUnknownUse;
    std::string name;        // with its article: "a squashfs"
    std::string processor;   // it is for this one; empty: not known
    uint64_t size = 0;       // bytes that its header claims; 0: it claims none
    bool isOld = false;      // Linux no longer mounts it
    uint64_t lebSize = 0;    // bytes of the erase blocks that a UBIFS was made for; 0: not known
    std::string release;     // of the kernel, by the name of a uImage; empty: not known
    uint64_t payload = 0;    // bytes of the header, which checksummed data follow; 0: no such header
    std::string fault;       // what contradicts itself in it, as a sentence's end; empty: nothing
    std::string damage;      // what in it does not have its checksum; empty: nothing
    const char* since = "";  // version of the first kernel that mounts it; empty: any, or not known
};

/// The number at `place`; what lies after the end counts as 0.
uint64_t bigEndianAt(const std::string& bytes, size_t place, size_t size);

/// Continues `sum`, 0 at the start, over more bytes: the CRC-32 that a uImage has, and, inverted, a UBIFS.
uint32_t addToSum(uint32_t sum, const char* bytes, size_t size);

/// \param head the image's first kFormatHead bytes, or all of them.
ImageFormat findFormat(const std::string& head);
