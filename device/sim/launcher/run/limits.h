// Limits of what runs inside a device, so that a script that never ends, or that multiplies, ends with the run.
//
// They are checked from outside, a few times per second: the kernel's own limits for groups of processes are not
// available to every user.
#pragma once

#include "util/descriptor.h"

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace rovusim {

struct Limits {
    uint64_t scriptSeconds =
        0;  // of a script or a simulated tool, with the waits that were skipped; 0: no limit
    uint64_t memoryBytes = 0;  // of all processes, and of files under /dev and /run; 0: no limit
    uint64_t processes = 0;    // at the same time; 0: no limit
};

/// A process that has called a simulated tool, or is a shell with a script.
struct TimedProcess {
    pid_t process = -1;
    zem::Descriptor handle;        // readable when it has ended
    int64_t mostMilliseconds = 0;  // of the monotonic clock and of the waits skipped until then
};

struct LimitWatch {
    Limits limits;
    // The device's, held since its start: as it ends, the same paths lead to the host's own folders for a moment.
    zem::Descriptor dev, run, proc;
    std::vector<TimedProcess> timed;
    int64_t nextLook = 0;  // milliseconds of the monotonic clock
};

/// \return the monotonic clock in milliseconds.
[[nodiscard]] int64_t nowMilliseconds();

[[nodiscard]] inline bool isAnyLimit(const Limits& limits) {
    return limits.scriptSeconds != 0 || limits.memoryBytes != 0 || limits.processes != 0;
}

/// Times the process that has just connected to `connection`.
void timeCaller(int connection, int64_t skippedMilliseconds, LimitWatch* watch);

/// Prepares to look at the device whose process 1 is `init`, which has made its folders and runs nothing yet.
/// \return 0, or a positive `errno`.
[[nodiscard]] int startLimits(pid_t init, LimitWatch* watch);

/// Looks at all limits, unless it did a moment ago.
/// \param skippedMilliseconds the waits that were skipped so far
/// \return what goes beyond its limit, as a sentence; empty: nothing.
[[nodiscard]] std::string lookAtLimits(int64_t skippedMilliseconds, LimitWatch* watch);

}  // namespace rovusim
