// The filter that hands a few system calls of everything inside to the launcher.
#pragma once

namespace rovusim {

/// Installs the filter in this process, for it and all that it starts: uname, and with `interceptWaits` the
/// sleeping calls too. Nothing is answered until somebody serves `listener`, which closes on exec.
/// \return 0, or a positive errno value after a message.
int installSyscallFilter(bool interceptWaits, int* listener);

}  // namespace rovusim
