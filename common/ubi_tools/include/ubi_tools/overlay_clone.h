// The overlay's way from the active set to the inactive one.

#pragma once

#include <cstdint>

/// Makes the data volume of `inactiveSet` a copy of that of `activeSet`, of the same size, and reads it
/// back. The source is read twice, and must not change in between.
/// \param tmpDir directory with room for the whole volume.
/// \param dryRun reads the source and changes nothing.
/// \return 0, EOVERFLOW, or the result of the getUbiVolumeInfo() or makeUbiVolume() that failed; EINVAL if
///         the source could not be read for its digest.
int cloneOverlay(uint32_t activeSet, uint32_t inactiveSet, const char* tmpDir, bool dryRun);
