// What the device runs now.

#pragma once

#include "util/version.h"

/// Parses the release of a kernel, which it changes: its first four fields are the version, '-' separates like
/// '.', and what follows a fourth separator does not matter. `*out` is written on success only.
/// \return a result of parseVersion().
[[nodiscard]] int parseKernelRelease(PackedVersion* out, char* release);

/// The version of the running kernel. `*out` is written on success only. See POSIX uname().
/// \return 0, the errno value of uname(), or a result of parseKernelRelease().
[[nodiscard]] int getKernelVersion(PackedVersion* out);

/// The version of the installed root file system, as the device's own script prints it.
/// \return 0 with `*out` written; a positive errno value (EOVERFLOW if the script prints more than 62
///         bytes), or 1, if the script could not be run; its exit status, which is -1 if a signal ended it;
///         or a result of parseVersion().
[[nodiscard]] int getRootfsVersion(PackedVersion* out);
