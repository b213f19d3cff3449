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

/// Installs the filter in this process and its future children. A call that is passed on blocks until
/// `listener`, which is close-on-exec, is served.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int installSyscallFilter(const FilterPlan& plan, zem::Descriptor* listener);

}  // namespace rovusim
