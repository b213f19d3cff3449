// The seccomp filter that passes a few system calls of all processes inside to the launcher.
#pragma once

#include "util/descriptor.h"

#include <vector>

namespace rovusim {

struct FilterPlan {
    std::vector<int> calls;  // the system calls to pass on, by number
    std::vector<int>
        statCalls;          // those of them that are passed on only if they name a file by its path alone
    bool all = false;       // passes on every call
    int exemptSocket = -1;  // sendmsg and read on this descriptor are never passed on
};

/// Writes the filter's instructions into a file without a name, for process 1 to install. Whatever the plan says, no
/// process inside reaches the kernel's keys or messages, or types into the launcher's terminal.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int writeSyscallFilter(const FilterPlan& plan, zem::Descriptor* file);

}  // namespace rovusim
