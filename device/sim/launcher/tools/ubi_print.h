// Sizes, devices and errors as the UBI tools print and parse them.
#pragma once

#include <cstdint>
#include <string>

namespace rovusim {

/// The major number of the character devices. The UBI device's own minor number is 0, a volume's is its id and 1.
constexpr unsigned kUbiMajor = 249;

/// A size of 1 KiB or more in the largest unit that fits, such as "1.2 MiB"; else empty.
std::string inUnits(uint64_t bytes);

/// Parses a size such as 126976, 124KiB or 1MiB.
/// \return whether it is one; `bytes` is written only then.
[[nodiscard]] bool parseBytes(const char* text, uint64_t* bytes);

/// Parses a decimal number.
/// \return whether it is one; `number` is written only then.
[[nodiscard]] bool parseNumber(const char* text, uint32_t* number);

/// Parses the name of a volume's node, such as /dev/ubi0_3, into the volume's id.
/// \return whether it is one; `id` is written only then.
[[nodiscard]] bool parseVolumeNode(const std::string& path, uint32_t* id);

}  // namespace rovusim
