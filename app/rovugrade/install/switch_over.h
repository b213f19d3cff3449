// The end of a run: the written set becomes the one that boots.
//
// This is the only place where the device's next boot changes. The reference files come first and the boot loader's
// variable after them: if the variable cannot be written, the files go back. What follows the variable can no longer
// fail the run.

#pragma once

#include "ubi_tools/ref_checksums.h"

#include <cstdint>

/// Records the volumes of `flashed` in the reference files and moves the boot loader to `inactiveSet`. A dry or moist
/// run only announces it.
/// \return false after logging; the boot loader has not been moved then.
[[nodiscard]] bool switchOver(uint32_t inactiveSet, const RefChecksumList& flashed);

/// Leaves readers of the progress file the time to see that the update is complete, then stops the device's other
/// daemons and restarts the device; a dry or moist run only waits.
void restartDevice();
