// Answers the system calls that the filter passes on: uname with the device's kernel release, waits at once,
// those that a rule names with its errno value; all others are carried out.
//
// The caller is blocked meanwhile, but it can be killed at any moment and its process id reused. So before
// its memory is used, the kernel is asked whether the call is still pending.
#pragma once

#include "launcher/syscalls/program_calls.h"
#include "util/descriptor.h"

#include <cstdint>
#include <linux/seccomp.h>
#include <string>
#include <vector>

namespace rovusim {

/// The calls that give a file or a process other owners. They succeed without effect: in a user namespace, only root is
/// known. An archive's owners must not make `tar` fail that succeeds on a device.
extern const std::vector<int> kOwnerCalls;

struct Supervisor {
    int listener = -1;
    std::string stateDir;
    std::string tmp;  // the device's /tmp, as this process knows it
    std::string kernelRelease;
    bool skipWaits = false;
    int64_t skippedMilliseconds = 0;  // of all waits
    bool watchesProgram = false;      // counts the program's calls and applies rules to them
    ProgramCalls program;
    zem::Descriptor null;           // open on /dev/null, for descriptors whose close fails
    std::vector<uint64_t> request;  // room for the kernel's structures, whose sizes the kernel reports
    std::vector<uint64_t> response;
};

/// Prepares to serve `listener`, which stays the caller's.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int startSupervisor(int listener, const std::string& stateDir, const std::string& kernelRelease,
                                  Supervisor* supervisor);

/// Answers one call; to be called when the listener is readable.
void answerSyscall(Supervisor* supervisor);

/// The calls that tell of a volume's node, where their path is relative to the working directory. Its bytes are in a regular
/// file; on a device it is a character device, and the program copies from it for that reason.
extern const int kStatCalls[2];

/// Those whose path is the first argument. glibc no longer makes them; musl does.
extern const std::vector<int> kPathStatCalls;

}  // namespace rovusim
