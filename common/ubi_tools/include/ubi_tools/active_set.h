// Which of the two sets of boot volumes the device runs from.

#pragma once

#include <cstdint>

/// Reads the number of the active set, 0 or 1, from the boot loader's variable `bootswitcher`. With
/// `verify` the volumes on the kernel's command line must name the same set.
/// \return 0 with `*set` written; or, with `*set` untouched, ENOKEY if the set is not certain, or the errno
///         value of a failure to read the kernel command line.
[[nodiscard]] int getActiveSet(uint32_t* set, bool verify);
