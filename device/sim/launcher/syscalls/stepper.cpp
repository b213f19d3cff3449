#include "launcher/syscalls/stepper.h"

#include "launcher/message.h"
#include "util/descriptor.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace rovusim {
namespace {

long trace(int request, pid_t thread, long data) {
    return ptrace(static_cast<__ptrace_request>(request), thread, nullptr, data);
}

// Waits for the next stop and returns the signal to deliver there, or 0; -1 once the thread has ended.
int nextStop(pid_t thread) {
    int status = 0;
    if (waitpid(thread, &status, __WALL) != thread || !WIFSTOPPED(status)) return -1;
    const int signal = WSTOPSIG(status);
    return signal == SIGTRAP || status >> 16 != 0 ? 0 : signal;
}

[[noreturn]] void step(pid_t thread, unsigned long instructions, int signal) {
    int deliver = nextStop(thread);
    for (unsigned long i = 0; i < instructions && deliver >= 0; ++i) {
        if (trace(PTRACE_SINGLESTEP, thread, deliver) != 0) _exit(EXIT_FAILURE);
        deliver = nextStop(thread);
    }
    if (deliver < 0) _exit(EXIT_SUCCESS);
    kill(thread, signal);
    trace(PTRACE_DETACH, thread, deliver);
    _exit(EXIT_SUCCESS);
}

}  // namespace

pid_t startStepper(pid_t thread, unsigned long instructions, int signal) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        cannot("trace", "the program", errno);
        return -1;
    }
    zem::Descriptor readEnd(ends[0]);
    zem::Descriptor writeEnd(ends[1]);
    const pid_t stepper = fork();
    if (stepper == 0) {
        // The thread is in its system call, so it stops before its next instruction.
        const bool stops = trace(PTRACE_SEIZE, thread, 0) == 0 && trace(PTRACE_INTERRUPT, thread, 0) == 0;
        if (!stops || write(writeEnd.get(), "s", 1) != 1) _exit(EXIT_FAILURE);
        step(thread, instructions, signal);
    }
    writeEnd.reset();
    char started = 0;
    if (stepper > 0 && read(readEnd.get(), &started, 1) == 1) return stepper;
    cannot("trace", "the program", stepper < 0 ? errno : EPERM);
    if (stepper > 0) waitpid(stepper, nullptr, 0);
    return -1;
}

}  // namespace rovusim
