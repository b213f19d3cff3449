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
    std::vector<TimedProcess> timed;
    bool isBeyondMemory = false;  // at the last look
    int64_t nextLook = 0;         // milliseconds of the monotonic clock
};

/// \return the monotonic clock in milliseconds.
[[nodiscard]] int64_t nowMilliseconds();

[[nodiscard]] inline bool isAnyLimit(const Limits& limits) {
    return limits.scriptSeconds != 0 || limits.memoryBytes != 0 || limits.processes != 0;
}

/// Times the process that has just connected to `connection`.
void timeCaller(int connection, int64_t skippedMilliseconds, LimitWatch* watch);

/// Looks at all limits of the device whose process 1 is `init`, unless it did a moment ago.
/// \param skippedMilliseconds the waits that were skipped so far
/// \return what goes beyond its limit, as a sentence; empty: nothing.
[[nodiscard]] std::string lookAtLimits(pid_t init, int64_t skippedMilliseconds, LimitWatch* watch);

}  // namespace rovusim
