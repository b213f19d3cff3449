// What all images of the device's flash have in common: big-endian numbers, and the sum of IEEE 802.3.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// The 32-bit number at `at`.
uint32_t word(const char* at);

/// CRC-32 without the final complement, as UBI has it.
uint32_t crc32(const char* bytes, size_t size);

/// Reads the file at `path`.
/// \return 0 or a positive errno value.
int readWhole(const std::string& path, std::string* bytes);
