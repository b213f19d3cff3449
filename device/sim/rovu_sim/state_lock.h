// One command at a time changes a device: a run and a restart hold the state directory's lock.
#pragma once

#include "rovu_sim/descriptor.h"

#include <string>

namespace rovusim {

/// Takes the lock without waiting; it is held until `lock` is closed.
/// \return 0, EBUSY if somebody else holds it, ENOENT if `stateDir` is no device, or another errno value.
int lockDevice(const std::string& stateDir, Descriptor* lock);

}  // namespace rovusim
