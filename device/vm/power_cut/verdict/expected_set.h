// What a boot set must hold to be complete.

#pragma once

#include <string>

struct ExpectedImage {
    std::string bytes;
    std::string md5;  // hex digest
};

struct ExpectedSet {
    unsigned number = 0;  // 0 or 1
    std::string version;
    ExpectedImage kernel;  // in volume k0 or k1
    ExpectedImage rootfs;  // in volume k0_root or k1_root

    std::string kernelVolume() const { return "k" + std::to_string(number); }
    std::string rootfsVolume() const { return kernelVolume() + "_root"; }
};

/// The two sets that an update lies between.
struct ExpectedSets {
    ExpectedSet old;
    ExpectedSet next;
};

/// Reads the images of a version, `kernel.img` and `rootfs.img` in FOLDER/VERSION. Throws std::runtime_error.
ExpectedSet readExpectedSet(const std::string& folder, const std::string& version, unsigned number);
