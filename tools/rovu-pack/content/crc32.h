// The checksum of uImage and UBIFS.

#pragma once

#include <cstddef>
#include <cstdint>

/// The CRC-32 of IEEE 802.3 over bytes that come in pieces.
class Crc32 {
public:
    void add(const char* bytes, size_t size);
    uint32_t value() const { return ~state_; }

private:
    uint32_t state_ = UINT32_MAX;
};
