// The processes of a run: the one that enters the namespaces and becomes bubblewrap, and process 1 inside.
#pragma once

#include "launcher/sandbox/bubblewrap.h"
#include "launcher/sandbox/namespaces.h"
#include "util/descriptor.h"

#include <csignal>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace rovusim {

struct StartPlan {
    SandboxPlan sandbox;
    NamespacePlan namespaces;
    std::vector<std::string> initWords;  // see InitWord; without those that this module knows
    zem::Descriptor filter;              // of a file with the instructions of the system call filter
    int output = -1;                     // for the command's output; -1: the launcher's own
    sigset_t signalMask = {};            // the command's
    uint64_t mostProcesses = 0;          // inside, at the same time; 0: no limit
};

struct SandboxProcess {
    pid_t outer = -1;        // bubblewrap, a child of this process
    pid_t init = -1;         // process 1 of the device
    zem::Descriptor socket;  // to it
    zem::Descriptor news;    // what bubblewrap tells of it
};

/// Its number inside: one that no program there uses, for the filter exempts the socket also from the program's calls.
constexpr int kSocketNumber = 250;

/// Enters the namespaces in a new process, which then waits.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int startSandbox(const StartPlan& plan, SandboxProcess* process, SandboxHandles* handles);

/// Lets it become bubblewrap, and waits until process 1 has handed its system calls over.
/// \param listener receives them
/// \return 0, or a positive errno value; bubblewrap or process 1 has then said why.
[[nodiscard]] int enterDevice(SandboxProcess* process, zem::Descriptor* listener);

}  // namespace rovusim
