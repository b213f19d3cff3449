#include "child_program.h"

#include "files.h"
#include "interruption.h"
#include "util/descriptor.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr mode_t kLogMode = 0600;
constexpr int kSignalBase = 128;
constexpr int kNotStarted = 127;
constexpr unsigned kPollMicroseconds = 20000;
constexpr unsigned kPatience = 25;  // rounds of polling

[[noreturn]] void become(const std::vector<std::string>& words, int log, pid_t parent) {
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    // The check closes the gap before the call.
    if (prctl(PR_SET_PDEATHSIG, SIGTERM) != 0 || getppid() != parent) _exit(kNotStarted);
    // Neither the operator's terminal nor what this program has open is for a script of the update.
    const int nothing = open("/dev/null", O_RDONLY);
    if (setsid() < 0 || dup2(nothing, STDIN_FILENO) < 0) _exit(kNotStarted);
    close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    if (dup2(log, STDOUT_FILENO) < 0 || dup2(log, STDERR_FILENO) < 0) _exit(kNotStarted);
    execvp(argv[0], argv.data());
    _exit(kNotStarted);
}

// A handler that only notes a signal does not end a wait that it does not interrupt: hence the polling.
Fault waitFor(pid_t child, int* status) {
    Fault ended;
    unsigned rounds = 0;
    for (;;) {
        const pid_t done = waitpid(child, status, WNOHANG);
        if (done == child) return ended;
        if (done < 0) return {errno, "waiting for a program failed"};
        // A script of an update may not heed the first signal.
        if (ended && ++rounds == kPatience) kill(child, SIGKILL);
        if (!ended) {
            ended = interruption();
            if (ended) kill(child, SIGTERM);
        }
        usleep(kPollMicroseconds);
    }
}

}  // namespace

Fault runChild(const std::vector<std::string>& words, const std::string& log, int* status) {
    const zem::Descriptor output(
        open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, kLogMode));
    if (!output.isOpen()) return fileFault(log, errno);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) return {errno, words.front() + ": cannot be started"};
    if (child == 0) become(words, output.get(), parent);
    int wait = 0;
    if (Fault fault = waitFor(child, &wait)) return fault;
    *status = WIFEXITED(wait) ? WEXITSTATUS(wait) : kSignalBase + WTERMSIG(wait);
    return *status == kNotStarted ? Fault(ENOENT, words.front() + ": cannot be started") : Fault();
}

std::string programBesideThis(const std::string& name) {
    char self[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) return name;
    self[length] = '\0';
    std::string path = self;
    path.replace(path.rfind('/') + 1, std::string::npos, name);
    return access(path.c_str(), X_OK) == 0 ? path : name;
}
