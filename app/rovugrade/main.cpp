// rovu, the entry: what must stand before an update begins, and what goes when the process ends.
//
// The work directory is the run's lock. From its creation on, every way out removes it, a signal included.

#include "command_line.h"
#include "log_module.h"
#include "settings.h"
#include "update.h"
#include "util/command.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sys/stat.h>

namespace {

constexpr unsigned int kQuietLevels = LOG_LVL_ERROR | LOG_LVL_WARNING | LOG_LVL_NOTICE;
constexpr unsigned int kVerboseLevels = kQuietLevels | LOG_LVL_INFO;
constexpr unsigned int kDebugLevels = kVerboseLevels | LOG_LVL_DEBUG;
constexpr mode_t kWorkDirMode = 0770;

LOG_Channel* mainChannel = nullptr;

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

// The channel goes first, so that the removal leaves no line at any verbosity.
void cleanupAtExit() {
    LOG_channel_free(mainChannel);
    runCommandF(nullptr, 0, nullptr, nullptr, "rm -Rf '%s'", kWorkDir);
}

// The progress file keeps the interrupted state, and a running child is not waited for. Logging from here
// is safe: a signal is not delivered while the log's lock is held.
void onSignal(int signal) {
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

}  // namespace

int main(int argc, char** argv) {
    mainChannel = LOG_channel_new(stdout, "stdout");
    if (mainChannel == nullptr) return 1;
    setLevels(kQuietLevels);
    if (!parseCommandLine(argc, argv)) return 1;
    applyVerbosity();
    if (!createWorkDir()) return 1;
    atexit(cleanupAtExit);
    installSignalHandlers();
    return runUpdate();
}
