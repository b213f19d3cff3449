// What kind of file an image is, by the bytes at its beginning.

#pragma once

#include <cstdint>
#include <string>

/// Most bytes of an image that findFormat() looks at.
constexpr size_t kFormatHead = 65536;

/// What a format is good for on a device that starts a kernel from one volume and mounts another.
enum FormatUse {
    eUnknownUse,   // nothing is known of it: it may be anything
    eBootable,     // a boot loader starts it
    eBundle,       // a kernel, a root file system or both, in the boot loader's own format
    eFileSystem,   // Linux mounts it
    eFlashSystem,  // the same, and some boot loaders read files of it
    eRamDisk,      // a boot loader passes it to the kernel
    eCompressed,   // what it holds is not known
    eVolumes,      // volumes with their flash's own headers, not what one of them holds
    eText,         // characters alone
    eNoImage,      // neither boots nor is mounted
};

struct ImageFormat {
    FormatUse use = eUnknownUse;
    std::string name;       // with its article: "a squashfs"
    std::string processor;  // it is for this one, which is not the device's; empty: not known to be
    uint64_t size = 0;      // bytes that its header claims; 0: it claims none
    bool isOld = false;     // Linux mounts it no more
    uint64_t lebSize = 0;   // bytes of the erase blocks that a UBIFS was made for; 0: not known
    std::string release;    // of the kernel, by the name of a uImage; empty: not known
};

/// \param head the image's first kFormatHead bytes, or all of them.
ImageFormat findFormat(const std::string& head);
