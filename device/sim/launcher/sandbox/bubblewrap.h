// The command line of bubblewrap, which makes a device's root directory and its first process.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace rovusim {

struct SandboxPlan {
    std::string stateDir;            // absolute
    std::string root;                // what becomes the root directory
    std::string toolProgram;         // the multi-call binary, absolute
    std::vector<std::string> binds;  // absolute paths to show read-only at the same place
    std::vector<std::pair<std::string, std::string>> files;  // paths of the host, and of files inside
    std::vector<std::pair<std::string, std::string>>
        limited;                           // folders that stand for others of the state directory
    std::vector<std::string> environment;  // NAME=VALUE, beside what every command gets
    bool hasHostPrograms = false;          // the root is made of the workstation's programs
    bool usesHostNetwork = false;
};

/// \param hasUserNamespace whether root inside is that of a user namespace. Else it gets no capability at all.
/// \param command process 1 and its arguments
/// \return the words of a command. See bwrap(1).
[[nodiscard]] std::vector<std::string> bubblewrapCommand(const SandboxPlan& plan, bool hasUserNamespace,
                                                         int infoDescriptor,
                                                         const std::vector<std::string>& command);

/// Removes the empty files and directories that binds left below the device's own directories.
void removeBindLeftovers(const SandboxPlan& plan);

}  // namespace rovusim
