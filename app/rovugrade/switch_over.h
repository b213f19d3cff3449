// The end of a run: the written set becomes the one that boots.

#pragma once

#include "ubi_tools/ref_checksums.h"

#include <cstdint>

/// Records the volumes of `flashed` in the reference files and moves the boot loader to `inactiveSet`; says
/// so only, in a dry or moist run. \return false after logging; the boot loader has not been moved then.
bool switchOver(uint32_t inactiveSet, const RefChecksumList& flashed);

/// Announces the success, stops the device's other daemons and restarts the device; in a dry or moist run, it
/// only announces the success. Nothing here can fail the run.
void completeAndRestart();
