// Which system calls the launcher gets to see: a seccomp filter passes them on, of all processes inside. And which of the
// program fail in a run, or are preceded by a signal.
//
// A rule reads NAME:N=WHAT, for the N-th call of NAME, or NAME:N+=WHAT, for each call from the N-th on. A signal also
// comes some instructions after the call: NAME:N/INSTRUCTIONS=SIGNAL.
#pragma once

#include "util/descriptor.h"

#include <string>
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

/// \return the name of a system call, or the decimal number if the host's library knows none.
[[nodiscard]] std::string syscallName(int number);

struct SyscallRule {
    int number = 0;  // of the system call
    unsigned first =
        1;  // among the program's calls of that number; for a signal, among those of its main thread
    bool onwards = false;       // also applies to every later call
    int error = 0;              // errno value that the call fails with; 0: it is carried out
    int signal = 0;             // sent to the program before the call; 0: none
    unsigned instructions = 0;  // executed after the call, if the signal comes after it; 0: it comes before
};

/// Parses a rule whose WHAT is the name of an errno value. `rule` is written on success only.
/// \return 0, or EINVAL with the reason in `why`.
[[nodiscard]] int parseFailRule(const std::string& text, SyscallRule* rule, std::string* why);

/// Parses a rule whose WHAT is a signal. `rule` is written on success only.
/// \return 0, or EINVAL with the reason in `why`.
[[nodiscard]] int parseKillRule(const std::string& text, SyscallRule* rule, std::string* why);

}  // namespace rovusim
