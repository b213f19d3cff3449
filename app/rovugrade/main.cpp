// The entry of rovu: what must be set up before an update begins.

#include "command_line.h"
#include "logging/log.h"
#include "run/exit_paths.h"
#include "run/settings.h"
#include "update.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <openssl/crypto.h>
#include <unistd.h>

namespace {

constexpr unsigned int kQuietLevels = LOG_LVL_ERROR | LOG_LVL_WARNING | LOG_LVL_NOTICE;
constexpr unsigned int kVerboseLevels = kQuietLevels | LOG_LVL_INFO;
constexpr unsigned int kDebugLevels = kVerboseLevels | LOG_LVL_DEBUG;

// A file of the run that got the number of a closed standard stream would be written to by whoever logs.
void occupyStandardDescriptors() {
    int fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = open("/dev/null", O_RDWR);
    if (fd >= 0) close(fd);
}

// What a signal handler or a run without memory must not meet half-made: the stream has its buffer from the start, and
// libcrypto does not tidy up at exit.
void prepareProcess() {
    signal(SIGCHLD, SIG_DFL);  // the caller may ignore SIGCHLD; the run needs the exit statuses
    endCleanlyWithoutMemory();
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

}  // namespace

int main(int argc, char** argv) {
    occupyStandardDescriptors();
    prepareProcess();
    mainChannel = LOG_channel_new(stdout, "stdout");
    if (mainChannel == nullptr) return 1;
    setLevels(kQuietLevels);
    if (!parseCommandLine(argc, argv)) return 1;
    applyVerbosity();
    if (!takeWorkDir()) return 1;
    return runUpdate();
}
