// Version numbers of up to four dotted fields, packed so that they compare as plain numbers.

#pragma once

#include <cstddef>
#include <cstdint>

/// a.b.c.d in four 16-bit fields, a uppermost. A field that the string does not give is 0.
using PackedVersion = uint64_t;

/// Packs the version that `string` begins with; `*out` is written on success only.
///
/// Every byte of the string must be a digit or a '.', but only as much as makes a version counts: "1..2" is
/// 1, and a fifth field is not looked at. A field above 65535 becomes 65535, however long it is.
/// \return 0; EILSEQ for any other character; EINVAL for a string that is empty or begins with a '.'.
[[nodiscard]] int parseVersion(PackedVersion* out, const char* string);

/// Writes all four fields, as "1.2.0.0", and a NUL into `destination`; 24 bytes hold every version.
/// \return `destination`.
char* formatVersion(PackedVersion version, char* destination, size_t size);
