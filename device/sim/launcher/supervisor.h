// Answers the system calls that the filter hands over: uname with the device's kernel, waits at once.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace rovusim {

struct Supervisor {
    int listener = -1;
    std::string stateDir;
    std::string kernelRelease;
    std::vector<uint64_t> request;  // room for the kernel's structures, whose sizes only the kernel knows
    std::vector<uint64_t> response;
};

/// \return 0, or a positive errno value after a message.
int startSupervisor(int listener, const std::string& stateDir, const std::string& kernelRelease,
                    Supervisor* supervisor);

/// Answers one call; to be used when the listener is readable.
void answerSyscall(Supervisor* supervisor);

}  // namespace rovusim
