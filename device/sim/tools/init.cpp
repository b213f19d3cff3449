#include "tools/init.h"

#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/tool_channel.h"
#include "util/descriptor.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace rovusim {
namespace {

constexpr size_t kMostInstructions = 4096;  // of a filter, by BPF_MAXINSNS

[[noreturn]] void fail(const char* what, int error) {
    fprintf(stderr, "rovu-sim: cannot %s: %s\n", what, strerror(error));
    _exit(kExitSetupFailed);
}

int install(const sock_fprog& program, unsigned flags) {
    return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, flags, &program));
}

int installFilter(int file, zem::Descriptor* listener) {
    static sock_filter instructions[kMostInstructions];
    const ssize_t size = pread(file, instructions, sizeof instructions, 0);
    if (size <= 0) return EINVAL;
    const sock_fprog program = {static_cast<unsigned short>(static_cast<size_t>(size) / sizeof(sock_filter)),
                                instructions};
    // With the second flag a signal does not interrupt a call that the launcher has already received. Older
    // kernels lack it: there an interrupted wait is recorded twice.
    int fd = install(program, SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV);
    if (fd < 0 && errno == EINVAL) fd = install(program, SECCOMP_FILTER_FLAG_NEW_LISTENER);
    if (fd < 0) return errno;
    listener->reset(fd);
    return 0;
}

// Between the installation of the filter and the byte from the launcher, a call that the filter passes on
// would block for ever; so the two calls on the socket are exempt.
int handOverSyscalls(int socket, int filter) {
    zem::Descriptor listener;
    if (int rc = installFilter(filter, &listener); rc != 0) return rc;
    char ready = 'l';
    if (int rc = sendMessage(socket, &ready, 1, {listener.get()}); rc != 0) return rc;
    return read(socket, &ready, 1) == 1 ? 0 : EPIPE;
}

sigset_t signalsOf(const char* mask) {
    const uint64_t bits = strtoull(mask, nullptr, 16);
    sigset_t set;
    sigemptyset(&set);
    for (int signal = 1; signal <= 64; ++signal) {
        if ((bits >> static_cast<unsigned>(signal - 1) & 1) != 0) sigaddset(&set, signal);
    }
    return set;
}

[[noreturn]] void runCommand(char** argv) {
    const int output = atoi(argv[eWordOutput]);
    if (output >= 0 && (dup2(output, 1) < 0 || dup2(output, 2) < 0)) _exit(kExitSetupFailed);
    if (output > 2) close(output);
    const char* program = argv[eWordProgram];
    const sigset_t mask = signalsOf(argv[eWordMask]);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    execvp(program, argv + eWordCommand);
    const int rc = errno;
    if (rc == ENOENT && strchr(program, '/') == nullptr) {
        fprintf(stderr, "rovu-sim: %s is not in the device's PATH, %s; %s\n", program, kPathInside,
                argv[eWordHint]);
    } else {
        fprintf(stderr, "rovu-sim: cannot run %s: %s\n", argv[eWordCommand], strerror(rc));
    }
    _exit(rc == ENOENT ? kExitNotFound : kExitCannotRun);
}

int exitStatusOf(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : kExitSignalBase + WTERMSIG(status);
}

// Reaps all ended children; true once the command is among them.
bool reap(pid_t command, int* exitStatus) {
    int status = 0;
    for (pid_t ended = waitpid(-1, &status, WNOHANG); ended > 0; ended = waitpid(-1, &status, WNOHANG)) {
        if (ended != command) continue;
        *exitStatus = exitStatusOf(status);
        return true;
    }
    return false;
}

// A sender outside this process namespace shows as process 0. The terminal's signals reach the command
// directly, and a signal from inside was not sent by the launcher.
bool isFromLauncher(const siginfo_t& info) {
    return info.si_code == SI_USER && info.si_pid == 0;
}

}  // namespace

void runInit(int argc, char** argv) {
    if (argc <= eWordCommand) _exit(kExitSetupFailed);
    const int socket = atoi(argv[eWordSocket]), filter = atoi(argv[eWordFilter]);
    for (const int own : {socket, filter})
        fcntl(own, F_SETFD, FD_CLOEXEC);
    if (int rc = handOverSyscalls(socket, filter); rc != 0) fail("hand over the system calls", rc);
    sigset_t awaited;
    sigemptyset(&awaited);
    for (int signal : {SIGCHLD, SIGTERM, SIGINT})
        sigaddset(&awaited, signal);
    sigprocmask(SIG_BLOCK, &awaited, nullptr);  // bubblewrap lets SIGCHLD through
    if (chdir(argv[eWordFolder]) != 0 && chdir("/") != 0) _exit(kExitSetupFailed);
    const pid_t command = fork();
    if (command < 0) fail("start a process", errno);
    if (command == 0) runCommand(argv);

    int exitStatus = 0;
    while (!reap(command, &exitStatus)) {
        siginfo_t info = {};
        const int signal = sigwaitinfo(&awaited, &info);
        if ((signal == SIGTERM || signal == SIGINT) && isFromLauncher(info)) kill(command, signal);
    }
    _exit(exitStatus);
}

}  // namespace rovusim
