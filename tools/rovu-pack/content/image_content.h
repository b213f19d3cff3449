// Whether the bytes of an image fit its entry in the spec. The device writes any bytes to a volume, and
// the fault shows only when it boots them.

#pragma once

#include "content/image_format.h"
#include "spec_view/finding.h"

#include <bitset>
#include <cstdint>
#include <string>

/// The bytes of an image that the rules need.
class ImageContent {
public:
    /// Takes the bytes at `offset` of the image, in their order; 0 begins the image, or another one.
    void add(uint64_t offset, const char* bytes, size_t size);

    const std::string& head() const { return head_; }  // its first bytes
    uint64_t size() const { return size_; }            // bytes
    /// What follows the words "Linux version " of a kernel that is not compressed; empty: nothing.
    const std::string& release() const { return release_; }
    size_t kindsOfBytes() const { return seen_.count(); }  // how many different ones it has
    uint32_t payloadSum() const { return sum_; }           // checksum of what a uImage's header announces

private:
    void findRelease(const char* bytes, size_t size);
    void sumPayload(uint64_t offset, const char* bytes, size_t size);

    std::bitset<256> seen_;
    uint32_t sum_ = 0;
    std::string tail_;  // the last bytes before those that come next
    std::string release_;
    std::string head_;
    uint64_t size_ = 0;
};

/// What the spec says of an image.
struct ImageClaim {
    std::string kind;  // "kernel" or "rootfs"
    std::string version;
    std::string kernelVersion;  // of the kernel that the same spec brings; empty: of none
    std::string name;           // what the sentences call it
    FindingPlace place;         // where its name stands in the spec
};

/// Judges an image's bytes by what they should be.
Findings checkImageContent(const ImageContent& content, const ImageClaim& claim);
