// Sizes and devices as the UBI tools print and read them.
#pragma once

#include <cstdint>
#include <string>

namespace rovusim {

/// A size of 1 KiB and more in the largest fitting unit, such as "1.2 MiB"; else empty.
std::string inUnits(uint64_t bytes);

/// Reads a size such as 126976, 124KiB or 1MiB. \return whether it is one.
bool parseBytes(const char* text, uint64_t* bytes);

/// Reads a whole decimal number. \return whether it is one.
bool parseNumber(const char* text, uint32_t* number);

/// Reads the volume's id from the name of its node, such as /dev/ubi0_3. \return whether it is one.
bool parseVolumeNode(const std::string& path, uint32_t* id);

}  // namespace rovusim
