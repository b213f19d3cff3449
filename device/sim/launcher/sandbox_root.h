// The root directory of a device: the host's own, read-only, with the device's directories laid over it.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace rovusim {

/// A volume that appears as a block device inside.
struct BlockNode {
    uint32_t volumeId = 0;
    dev_t device = 0;
};

struct SandboxPlan {
    std::string stateDir;            // absolute
    std::string toolProgram;         // the multi-call binary, absolute
    std::vector<std::string> binds;  // absolute paths to show read-only at the same place
    std::vector<BlockNode> blockNodes;
};

/// Whether the host's `path` cannot be seen inside unless it is bound.
bool isHiddenInside(const std::string& path);

/// Builds the root and moves this process into it. Needs a mount and a process namespace of its own, and
/// being the first process of the latter.
/// \return 0, or a positive errno value after a message.
int enterSandboxRoot(const SandboxPlan& plan);

/// Takes away the empty files and directories that binds below the device's own directories left behind.
void removeBindLeftovers(const SandboxPlan& plan);

}  // namespace rovusim
