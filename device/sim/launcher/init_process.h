// The first process inside a device.
#pragma once

#include "launcher/sandbox_root.h"

#include <csignal>
#include <string>
#include <vector>

namespace rovusim {

/// Exit statuses of a run that did not come from the command.
constexpr int kExitSetupFailed = 125;
constexpr int kExitCannotRun = 126;
constexpr int kExitNotFound = 127;
constexpr int kExitSignalBase = 128;  // plus the signal that killed the command

struct InitPlan {
    SandboxPlan sandbox;
    std::vector<std::string> command;  // argv
    std::string program;               // absolute path to run, or a name to look up inside
    std::string workingDirectory;      // kept if it exists inside
    bool interceptWaits = false;
    int socket = -1;           // to the launcher: takes the filter's listener, gives one byte back
    int output = -1;           // where the command's output goes; -1: where the launcher's goes
    sigset_t signalMask = {};  // the command's
};

/// Builds the device around itself, runs the command and ends with its status; with it ends all that is
/// left running inside. Runs as process 1 of its namespace, with all signals blocked.
[[noreturn]] void runInit(const InitPlan& plan);

}  // namespace rovusim
