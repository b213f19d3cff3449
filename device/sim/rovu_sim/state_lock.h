// The lock of a state directory, so that only one command at a time changes a device.
#pragma once

#include "util/descriptor.h"

#include <string>

namespace rovusim {

/// Takes the lock without waiting. It is held until `lock` is closed.
/// \return 0, EBUSY if another process holds it, ENOENT if `stateDir` is not a device, or another errno
/// value.
[[nodiscard]] int lockDevice(const std::string& stateDir, zem::Descriptor* lock);

}  // namespace rovusim
