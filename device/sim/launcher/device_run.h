// Running one command inside a device, from taking the device to giving it back.
#pragma once

#include <string>
#include <vector>

namespace rovusim {

struct RunOptions {
    std::string stateDir;
    std::vector<std::string> command;   // argv, never empty
    std::vector<std::string> binds;     // host paths to show read-only at the same place
    std::vector<std::string> failures;  // fault rules, each of which parses
    std::string log;                    // file for the command's output; empty: as the launcher's
    std::string commandLine;            // the kernel's; empty: that of the running set
    bool noWait = false;                // waits of a second and more are recorded and cut short
    bool watch = false;
    bool freshLog = false;  // empties the call log first
};

/// \return the exit status for the launcher: the command's, or one of those in init_process.h.
int runInDevice(const RunOptions& options);

}  // namespace rovusim
