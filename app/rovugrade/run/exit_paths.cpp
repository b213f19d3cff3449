#include "run/exit_paths.h"

#include "run/log_module.h"
#include "run/progress.h"
#include "run/settings.h"
#include "util/command.h"
#include "util/remove_tree.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <pthread.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

LOG_Channel* mainChannel = nullptr;

namespace {

constexpr mode_t kWorkDirMode = 0770;

pid_t mainProcess;
pthread_t mainThread;
bool workDirHeld = false;

void blockAllSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

// Runs the removal in a shell, as system() would, but without its lock. Signals act on the shell as on any other command.
// See POSIX posix_spawn().
bool removeByShell() {
    static char shell[] = "sh";
    static char option[] = "-c";
    char* const arguments[] = {shell, option, const_cast<char*>(kRemoveWorkDir), nullptr};
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t child = 0;
    if (posix_spawn(&child, "/bin/sh", nullptr, &attributes, arguments, environ) != 0) return false;
    int waitStatus = 0;
    while (waitpid(child, &waitStatus, 0) < 0) {
        if (errno != EINTR) return false;
    }
    return waitStatus == 0;
}

// The channel goes first, so that the removal logs nothing at any verbosity. A directory that the shell could not remove
// would lock out every later run.
void cleanupAtExit() {
    blockAllSignals();
    LOG_channel_free(mainChannel);
    int exitStatus = 0;
    const int32_t ran = runCommand(kRemoveWorkDir, nullptr, 0, &exitStatus, nullptr);
    if (ran != 0 || exitStatus != 0) removeTree(kWorkDir);
}

// The progress file keeps the interrupted state, and a running child is not waited for. What else exit() would do frees
// memory, on a heap that the signal may have met half-changed.
[[noreturn]] void endBySignal(int signal) {
    blockAllSignals();
    LOG_signal_handler_entered();
    LOG_MSG(LOG_LVL_NOTICE, "Caught signal %d. Exiting...", signal);
    if (!removeByShell()) removeTree(kWorkDir);
    fflush(stdout);
    _exit(0);
}

// A thread that libcurl has made to resolve a name hands the signal on. A child that is not its command yet, where
// system() forks, is not the run.
void onSignal(int signal) {
    if (getpid() != mainProcess) _exit(128 + signal);
    if (pthread_equal(pthread_self(), mainThread) != 0) endBySignal(signal);
    pthread_kill(mainThread, signal);
}

void installSignalHandlers() {
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

bool createWorkDir() {
    if (mkdir(kWorkDir, kWorkDirMode) == 0) return true;
    LOG_MSG(LOG_LVL_ERROR, "Failed to create directory \"%s\": %d", kWorkDir, errno);
    return false;
}

void endWithoutMemory() {
    settleOutcome();
    if (workDirHeld) setState(eStateError, nullptr);
    exit(1);
}

}  // namespace

// A signal between the creation and the handlers would leave the lock, so it waits.
bool takeWorkDir() {
    mainProcess = getpid();
    mainThread = pthread_self();
    sigset_t ending;
    sigset_t before;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ending, &before);
    workDirHeld = createWorkDir();
    if (workDirHeld) {
        atexit(cleanupAtExit);
        installSignalHandlers();
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return workDirHeld;
}

void settleOutcome() {
    blockAllSignals();
}

void endCleanlyWithoutMemory() {
    std::set_new_handler(endWithoutMemory);
}
