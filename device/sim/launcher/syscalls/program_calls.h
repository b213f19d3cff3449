// Counts the system calls of the program and applies the rules on them.
//
// The program is every process and thread that runs the executable of the command's process. A child belongs
// to it until it executes another program, so what system() and popen() do between fork and exec counts; the
// commands that they start do not. Calls before the command's exec are the launcher's and do not count.
#pragma once

#include "launcher/syscalls/syscall_filter.h"

#include <cstdint>
#include <linux/seccomp.h>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace rovusim {

class ProgramCalls {
public:
    /// What becomes of a call.
    enum class Verdict {
        eCarryOut,
        eFail,     // with error()
        eRestart,  // a signal is pending: its action comes first, then the call is made again
    };

    /// \param init process 1 of the device, whose first child to call execve is the command's process
    void watch(pid_t init, std::vector<SyscallRule> rules);

    /// To be called once the command's process has ended.
    void finish();

    /// Whether the call is one of the program's. Reads /proc, so the caller checks afterwards that the call
    /// is still pending and its process id not reused.
    [[nodiscard]] bool isOfProgram(const seccomp_notif& call);

    /// Counts a call of the program and applies the first rule that matches; sends the signal if it has one.
    [[nodiscard]] Verdict take(const seccomp_notif& call);

    /// The errno value of the last eFail.
    [[nodiscard]] int error() const { return error_; }

    /// One line "name count own" for each system call that the program made, sorted by name: by all its processes and
    /// threads, and by the main thread of the command's process.
    [[nodiscard]] std::string counts() const;

private:
    [[nodiscard]] const SyscallRule* matchingRule(const seccomp_notif& call) const;
    Verdict deliver(const seccomp_notif& call, const SyscallRule& rule);

    struct Restarted {
        pid_t thread = -1;
        uint64_t address = 0;
    };

    pid_t init_ = -1;
    pid_t command_ = -1;
    std::vector<SyscallRule> rules_;
    struct Count {
        unsigned all = 0;
        unsigned own = 0;  // of the main thread of the command's process
    };

    std::map<int, Count> counts_;  // by system call number
    Restarted restarted_;          // the call that a signal preceded; it is not counted again
    pid_t stepper_ = -1;
    int error_ = 0;
};

}  // namespace rovusim
