// The entry of rovu: what must stand before an update begins, and what goes when the process ends.
//
// The work directory is the run's lock. From its creation on, every exit path removes it, a signal included.

#include "command_line.h"
#include "log_module.h"
#include "settings.h"
#include "update.h"
#include "util/command.h"
#include "work_dir.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <openssl/crypto.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr unsigned int kQuietLevels = LOG_LVL_ERROR | LOG_LVL_WARNING | LOG_LVL_NOTICE;
constexpr unsigned int kVerboseLevels = kQuietLevels | LOG_LVL_INFO;
constexpr unsigned int kDebugLevels = kVerboseLevels | LOG_LVL_DEBUG;
constexpr mode_t kWorkDirMode = 0770;

LOG_Channel* mainChannel = nullptr;
pthread_t mainThread;
volatile sig_atomic_t endedBySignal = 0;

// A file of the run that got the number of a closed standard stream would be written to by whoever logs.
void occupyStandardDescriptors() {
    int fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = open("/dev/null", O_RDWR);
    if (fd >= 0) close(fd);
}

// The process would end here in any case; so it ends in a way that removes the work directory.
void endWithoutMemory() {
    exit(1);
}

// A signal handler logs and then ends the process, while the heap may be in any state: so the stream gets its
// buffer beforehand, and libcrypto does not tidy up at exit.
void prepareForSignals() {
    signal(SIGCHLD, SIG_DFL);  // whoever started the run may not want to know how children end; the run does
    std::set_new_handler(endWithoutMemory);
    static char buffer[BUFSIZ];
    setvbuf(stdout, buffer, isatty(STDOUT_FILENO) != 0 ? _IOLBF : _IOFBF, sizeof buffer);
#ifdef OPENSSL_INIT_NO_ATEXIT
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
#endif
}

void setLevels(unsigned int levels) {
    LOG_channel_set_levels(mainChannel, levels);
    LOG_channel_apply(mainChannel);
}

void applyVerbosity() {
    if (verbosity != 0) setLevels(verbosity >= 2 ? kDebugLevels : kVerboseLevels);
}

bool createWorkDir() {
    if (mkdir(kWorkDir, kWorkDirMode) == 0) return true;
    LOG_MSG(LOG_LVL_ERROR, "Failed to create directory \"%s\": %d", kWorkDir, errno);
    return false;
}

// The channel goes first, so that the removal logs nothing at any verbosity. No signal is delivered any more:
// one that ended the process from here would leave the directory, and with it the lock.
void cleanupAtExit() {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    LOG_channel_free(mainChannel);
    runCommandF(nullptr, 0, nullptr, nullptr, "rm -Rf '%s'", kWorkDir);
    if (endedBySignal != 0) {
        // What would follow frees memory, on a heap that the signal may have met half-way.
        fflush(stdout);
        _exit(0);
    }
}

// The progress file keeps the interrupted state, and a running child is not waited for. Logging from here
// is safe: a signal is not delivered while the log's lock is held. A thread that libcurl has made to resolve
// a name hands the signal on.
void onSignal(int signal) {
    if (pthread_equal(pthread_self(), mainThread) == 0) {
        pthread_kill(mainThread, signal);
        return;
    }
    endedBySignal = 1;
    LOG_MSG(LOG_LVL_NOTICE, "Caught signal %d. Exiting...", signal);
    exit(0);
}

void installSignalHandlers() {
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

// Makes the work directory, and sees to its removal. A signal in between waits, or it would leave the lock.
bool takeWorkDir() {
    sigset_t ending;
    sigset_t before;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    sigprocmask(SIG_BLOCK, &ending, &before);
    const bool made = createWorkDir();
    if (made) {
        atexit(cleanupAtExit);
        installSignalHandlers();
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return made;
}

}  // namespace

int main(int argc, char** argv) {
    mainThread = pthread_self();
    occupyStandardDescriptors();
    prepareForSignals();
    mainChannel = LOG_channel_new(stdout, "stdout");
    if (mainChannel == nullptr) return 1;
    setLevels(kQuietLevels);
    if (!parseCommandLine(argc, argv)) return 1;
    applyVerbosity();
    if (!takeWorkDir()) return 1;
    return runUpdate();
}
