// Runs one command inside a device: locks the device, runs the command, releases the device.
//
// The launcher stays outside: it does the work of the tools, answers the system calls that the filter passes
// on, forwards signals, watches the limits, and draws the progress. One poll loop does it all.
#pragma once

#include "launcher/run/limits.h"
#include "launcher/syscalls/syscall_filter.h"
#include "launcher/web/web_server.h"

#include <cstdint>
#include <string>
#include <vector>

namespace rovusim {

struct RunOptions {
    std::string stateDir;
    std::vector<std::string> command;      // argv, never empty
    std::vector<std::string> binds;        // host paths to show read-only at the same place
    std::vector<std::string> failures;     // fault rules, each of which parses
    std::vector<std::string> environment;  // NAME=VALUE, beside what every command gets
    std::vector<ServedUrl> served;         // answered inside
    std::string log;                       // file for the command's output; empty: the launcher's own
    std::string commandLine;               // the kernel's; empty: that of the active set
    bool noWait = false;                   // waits of a second or more are recorded and skipped
    bool watch = false;
    bool untilReboot =
        false;  // the run ends, and all processes with it, when the device asks for its restart
    bool usesHostNetwork = false;           // else the network is a private one
    std::vector<SyscallRule> syscallRules;  // on the program's own system calls
    std::string countFile;                  // for the number of the program's system calls; empty: none
    bool freshLog = false;                  // empties the call log first
    Limits limits;
    // Of /tmp, if the device names no room there, of /app0, of /etc/ssh, and of all else that is written; 0: no limit,
    // but for the last.
    uint64_t diskBytes = 0;
};

/// Makes the device's root file system, if it is not there.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int prepareRoot(const std::string& stateDir);

/// Runs the command and waits for it.
/// \return the exit status for the launcher: the command's, or one of those in sandbox_paths.h.
[[nodiscard]] int runInDevice(const RunOptions& options);

}  // namespace rovusim
