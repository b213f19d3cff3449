// The seccomp filter that passes a few system calls of all processes inside to the launcher.
#pragma once

#include "rovu_sim/descriptor.h"

namespace rovusim {

/// Installs the filter in this process and its future children: for uname, and with `interceptWaits` also
/// for the sleeping calls. Such a call blocks until `listener`, which is close-on-exec, is served.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int installSyscallFilter(bool interceptWaits, Descriptor* listener);

}  // namespace rovusim
