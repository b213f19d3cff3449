// The root directory of a device: the host's own, read-only, with the device's directories mounted over it.
//
// Everything is mounted below an unbindable tmpfs on the state directory's `root`, so that binding a host
// directory that contains the state directory does not copy the new root into itself. The whole mirror is
// made read-only in one step before anything writable is mounted over it.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace rovusim {

struct SandboxPlan {
    std::string stateDir;            // absolute
    std::string toolProgram;         // the multi-call binary, absolute
    std::vector<std::string> binds;  // absolute paths to show read-only at the same place
    std::vector<std::pair<std::string, std::string>> replaced;  // paths of the host, and of files inside
    int tmp = -1;  // descriptor of the tmpfs for /tmp; -1: the state directory's own folder
};

/// Whether the host's `path` is hidden inside unless it is bound.
[[nodiscard]] bool isHiddenInside(const std::string& path);

/// Builds the root and moves this process into it. This process must be process 1 of a process namespace and
/// have a mount namespace of its own.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int enterSandboxRoot(const SandboxPlan& plan);

/// Removes the empty files and directories that binds left below the device's own directories.
void removeBindLeftovers(const SandboxPlan& plan);

}  // namespace rovusim
