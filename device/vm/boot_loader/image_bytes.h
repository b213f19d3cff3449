// What all images of the device's storage have in common: ranges of bytes, big-endian numbers, and the checksum of
// IEEE 802.3.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// Bytes of a file or of an image.
struct ByteRange {
    size_t offset = 0;
    size_t size = SIZE_MAX;  // all that follow
};

/// \return whether the two have a byte in common.
bool overlap(const ByteRange& a, const ByteRange& b);

/// The 32-bit number at `at`.
uint32_t word(const char* at);

/// CRC-32 without the final complement, as UBI has it.
uint32_t crc32(const char* bytes, size_t size);

/// Reads a range of the file at `path`.
/// \return 0; or a positive errno value, EIO if the file ends before the range does.
int readBytes(const std::string& path, const ByteRange& range, std::string* bytes);

/// Replaces the file at `path` by `bytes`, with holes where these are zeros.
/// \return 0 or a positive errno value.
int writeSparse(const std::string& path, const std::string& bytes);
