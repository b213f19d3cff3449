// What a boot set must hold to be complete.
//
// Which volumes of a flash are complete, again and again while it changes: only what has changed is read again.

#pragma once

#include "disk.h"
#include "host/fault.h"
#include "ubi_image.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

/// The two sets before and after an update.
struct ExpectedSets {
    ExpectedSet old;
    ExpectedSet next;
};

/// Reads the images of a version, `kernel.img` and `rootfs.img` in FOLDER/VERSION.
Fault readExpectedSet(const std::string& folder, const std::string& version, unsigned number,
                      ExpectedSet* set);

class FlashReader {
public:
    /// Reads all of `flash`, whose size must not change later.
    explicit FlashReader(std::string_view flash);

    /// Reads again what a write to `changed` may have changed; `changed` counts from the start of the flash.
    void refresh(std::string_view flash, const ByteRange& changed);

    /// \return what keeps the set from booting; empty if its volumes hold what they must.
    std::string faultOf(std::string_view flash, const ExpectedSet& set);

private:
    // A LEB that was compared, as long as its block is not written.
    struct Compared {
        const ExpectedImage* image = nullptr;
        uint32_t leb = 0;
        bool isEqual = false;
    };

    bool holds(std::string_view flash, const UbiVolume& volume, const ExpectedImage& image);
    bool isEqual(std::string_view flash, const UbiVolume& volume, uint32_t leb, const ExpectedImage& image);

    std::vector<std::optional<UbiBlock>> blocks_;
    std::vector<Compared> compared_;  // by block
    std::vector<UbiVolume> volumes_;
    bool hasVolumes_ = false;
};
