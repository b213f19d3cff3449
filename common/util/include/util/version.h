// Version numbers of up to four dotted fields, packed so that they compare as plain numbers.

#pragma once

#include <cstddef>
#include <cstdint>

/// a.b.c.d in four 16-bit fields, a uppermost. A field that a text does not give is 0.
using PackedVersion = uint64_t;

/// Packs the version that `text` begins with; `*out` is written on success only.
///
/// Every byte of the text must be a digit or a '.', but only as much as makes a version counts: "1..2" is
/// 1, and a fifth field is not looked at. A field above 65535 becomes 65535, however long it is.
/// \return 0; EILSEQ for any other character; EINVAL for a text that is empty or begins with a '.'.
int parseVersion(PackedVersion* out, const char* text);

/// Writes all four fields, as "1.2.0.0", and a NUL into `destination`; 24 bytes hold every version.
/// \return `destination`.
char* formatVersion(PackedVersion version, char* destination, size_t size);
