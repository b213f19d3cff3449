// Sends a process a signal between two of its instructions.
#pragma once

#include <sys/types.h>

namespace rovusim {

/// Lets a thread that is inside a system call finish it, executes `instructions` more instructions one by one, and
/// then sends the thread's process `signal`. A process of its own does it with ptrace(2), since each step would
/// otherwise wake the launcher; it ends by itself, and if the thread ends first there is no signal.
///
/// \return the id of that process, which the caller waits for; or -1 after a message.
[[nodiscard]] pid_t startStepper(pid_t thread, unsigned long instructions, int signal);

}  // namespace rovusim
