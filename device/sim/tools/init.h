// Process 1 inside a device.
//
// It is not the command itself: process 1 has no default signal actions and inherits orphans, for which no
// updater is written.
#pragma once

namespace rovusim {

/// Hands the system calls over to the launcher, runs the command and exits with its status, which also ends all
/// processes that are left inside.
/// \param argv see `InitWord`
[[noreturn]] void runInit(int argc, char** argv);

}  // namespace rovusim
