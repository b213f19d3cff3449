#include "host/child.h"

#include "host/files.h"
#include "host/leftovers.h"
#include "util/descriptor.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr mode_t kOutputMode = 0600;
constexpr int kSignalBase = 128;
constexpr unsigned kFirstPollMicroseconds = 500;
constexpr unsigned kPollMicroseconds = 20000;
constexpr unsigned kPatience = 25;  // rounds of polling

// Allocates nothing, since other threads may run. \return why it failed, an errno value.
int become(char* const* argv, int input, int output, pid_t parent) {
    if (prctl(PR_SET_PDEATHSIG, SIGTERM) != 0) return errno;
    if (getppid() != parent) return ESRCH;  // it has ended before the call
    // The program gets neither the operator's terminal nor this program's descriptors.
    if (setsid() < 0 || dup2(input, STDIN_FILENO) < 0 || dup2(output, STDOUT_FILENO) < 0 ||
        dup2(output, STDERR_FILENO) < 0)
        return errno;
    close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    execvp(argv[0], argv);
    return errno;
}

// A handler that only sets a flag may not interrupt a wait: hence the polling.
Fault waitFor(pid_t child, int* status) {
    Fault ended;
    unsigned rounds = 0;
    unsigned pause = kFirstPollMicroseconds;
    for (;;) {
        const pid_t done = waitpid(child, status, WNOHANG);
        if (done == child) return ended;
        if (done < 0) return {errno, "waiting for a program failed"};
        // What it runs may ignore the first signal.
        if (ended && ++rounds == kPatience) kill(child, SIGKILL);
        if (!ended) {
            ended = interruption();
            if (ended) kill(child, SIGTERM);
        }
        usleep(pause);
        pause = std::min(2 * pause, kPollMicroseconds);
    }
}

}  // namespace

Fault runChild(const std::vector<std::string>& words, const std::string& input, const std::string& output,
               int* status) {
    const zem::Descriptor in(open(input.c_str(), O_RDONLY | O_CLOEXEC));
    if (!in.isOpen()) return fileFault(input, errno);
    const zem::Descriptor out(
        open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, kOutputMode));
    if (!out.isOpen()) return fileFault(output, errno);
    // Closed by a program that starts. Until then it carries the reason why it does not: each exit status can be the
    // program's own.
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return {errno, "no pipe can be made"};
    const zem::Descriptor reason(ends[0]);
    zem::Descriptor theirs(ends[1]);
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    const pid_t parent = getpid();
    const pid_t child = fork();
    int error = child < 0 ? errno : 0;
    if (child == 0) {
        error = become(argv.data(), in.get(), out.get(), parent);
        _exit(write(theirs.get(), &error, sizeof error) == ssize_t{sizeof error} ? 0 : 1);
    }
    theirs.reset();
    int wait = 0;
    if (child > 0) {
        if (read(reason.get(), &error, sizeof error) != ssize_t{sizeof error}) error = 0;
        if (Fault fault = waitFor(child, &wait)) return fault;
    }
    if (error != 0) return {error, words.front() + ": cannot be started: " + strerror(error)};
    *status = WIFEXITED(wait) ? WEXITSTATUS(wait) : kSignalBase + WTERMSIG(wait);
    return {};
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
