// Process 1 inside a device.
//
// It is not the command itself: process 1 has no default signal actions and inherits orphans, which no
// updater expects of itself.
#pragma once

#include "launcher/sandbox/sandbox_root.h"
#include "launcher/syscalls/syscall_filter.h"
#include "launcher/web/served_url.h"

#include <csignal>
#include <string>
#include <vector>

namespace rovusim {

/// Exit statuses of a run that are not the command's own.
constexpr int kExitSetupFailed = 125;
constexpr int kExitCannotRun = 126;
constexpr int kExitNotFound = 127;
constexpr int kExitSignalBase = 128;  // plus the signal that killed the command

struct InitPlan {
    SandboxPlan sandbox;
    std::vector<std::string> command;  // argv
    std::string program;               // absolute path to run, or a name to look up inside
    std::string programOnHost;         // where the host's PATH has that name; empty: nowhere, or not a name
    std::string workingDirectory;      // entered if it exists inside, else /
    std::vector<std::string> environment;  // NAME=VALUE, beside what every command gets
    std::vector<ServedUrl> served;         // answered inside; with any, the network is a private one
    FilterPlan filter;                     // its exempt socket is `socket`
    int socket = -1;                       // to the launcher: sends the filter's listener, receives one byte
    int output = -1;                       // for the command's output; -1: the launcher's own
    sigset_t signalMask = {};              // the command's
};

/// Sets up the device, runs the command and exits with its status, which also ends all processes that are
/// left inside. Must run as process 1 of its namespace, with all signals blocked.
[[noreturn]] void runInit(const InitPlan& plan);

}  // namespace rovusim
