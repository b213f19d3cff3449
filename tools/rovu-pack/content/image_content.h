// Whether an image can be what its entry of the spec says, by its bytes. The device writes any bytes to a volume, and
// the fault shows only when it boots them.

#pragma once

#include "finding.h"

#include <cstdint>
#include <string>

/// An image's bytes, as far as they are judged.
class ImageContent {
public:
    /// Takes the bytes at `offset` of the image, in their order; 0 begins the image, or another one.
    void add(uint64_t offset, const char* bytes, size_t size);

    const std::string& head() const { return head_; }  // its first bytes
    uint64_t size() const { return size_; }            // bytes
    bool isUniform() const { return isUniform_; }      // all bytes are one and the same, or there are none

private:
    std::string head_;
    uint64_t size_ = 0;
    bool isUniform_ = true;
};

/// Judges the image that is to be the device's `kind`, "kernel" or "rootfs".
/// \param name what the sentences call it.
/// \param place where its name stands in the spec.
Findings checkImageContent(const ImageContent& content, const std::string& kind, const std::string& name,
                           const FindingPlace& place);
