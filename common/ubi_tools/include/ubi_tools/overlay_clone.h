// Clones the overlay from the active set to the inactive one.

#pragma once

#include <cstdint>

/// Makes the data volume of `inactiveSet` a copy of that of `activeSet`, of the same size, and reads it
/// back. The source is read twice, and must not change in between.
/// \param tmpDir directory with room for the whole volume.
/// \param dryRun reads the source and changes nothing.
/// \return 0; EOVERFLOW: a name does not fit; or the result of the getUbiVolumeInfo() or makeUbiVolume() that failed.
///         The latter is EINVAL, with the target untouched, if md5sum could not be run or printed less than a digest. A
///         digest that md5sum printed in full is used whatever its exit status, and the read-back decides.
[[nodiscard]] int cloneOverlay(uint32_t activeSet, uint32_t inactiveSet, const char* tmpDir, bool dryRun);
