// Which volumes of a flash are complete, again and again while it changes: only what has changed is read again.

#pragma once

#include "image_bytes.h"
#include "ubi_image.h"
#include "verdict/expected_set.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

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
