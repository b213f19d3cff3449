// What the device runs now.

#pragma once

#include "util/version.h"

/// The version of the running kernel: the first four fields of its release, in which '-' separates like
/// '.'. What stands behind a fourth separator does not matter. See POSIX uname().
/// \return 0, the errno value of uname(), or a result of parseVersion(); `*out` is written on success only.
int getKernelVersion(PackedVersion* out);

/// The version of the installed root file system, as the device's own script prints it.
/// \return 0 with `*out` written; a positive errno value (EOVERFLOW if the script prints more than 62
///         bytes), or 1, if the script could not be run; its exit status, which is -1 if a signal ended it;
///         or a result of parseVersion().
int getRootfsVersion(PackedVersion* out);
