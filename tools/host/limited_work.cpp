#include "host/limited_work.h"

#include "host/leftovers.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr rlim_t kMoreBytes = rlim_t{64} << 20;
constexpr rlim_t kSeconds = 1;
constexpr int kBeyond = ETIME;
constexpr int kNotDone = 1;  // exit status of the child

// Address space, in bytes; 0: not known.
rlim_t usedBytes() {
    unsigned long pages = 0;
    FILE* file = fopen("/proc/self/statm", "re");
    if (file == nullptr) return 0;
    if (fscanf(file, "%lu", &pages) != 1) pages = 0;
    fclose(file);
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

// Until the end of its scope.
class MemoryLimit {
public:
    MemoryLimit() {
        const rlim_t used = usedBytes();
        if (used == 0 || getrlimit(RLIMIT_AS, &before_) != 0) return;
        const struct rlimit limit = {std::min(before_.rlim_cur, used + kMoreBytes), before_.rlim_max};
        isSet_ = setrlimit(RLIMIT_AS, &limit) == 0;
    }
    ~MemoryLimit() {
        if (isSet_) setrlimit(RLIMIT_AS, &before_);
    }
    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;

private:
    struct rlimit before_ = {};
    bool isSet_ = false;
};

[[noreturn]] void tryHere(const std::function<void()>& work, pid_t parent) {
    const struct rlimit time = {kSeconds, kSeconds};
    const struct rlimit noCore = {0, 0};
    for (const int ending : {SIGINT, SIGTERM, SIGHUP, SIGXCPU})
        signal(ending, SIG_DFL);
    // The check closes the gap before the call.
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent) _exit(kNotDone);
    if (setrlimit(RLIMIT_CPU, &time) != 0 || setrlimit(RLIMIT_CORE, &noCore) != 0) _exit(kNotDone);
    try {
        work();
    } catch (...) {  // the memory has run out, which is an outcome here
        _exit(kNotDone);
    }
    _exit(0);
}

}  // namespace

Fault doWithinLimits(const std::function<void()>& work) {
    const MemoryLimit limit;
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) return {errno, "no process can be started to try an evaluation in"};
    if (child == 0) tryHere(work, parent);
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return {errno, "waiting for an evaluation failed"};
    }
    if (Fault fault = interruption()) return fault;
    if (status != 0) return beyondLimits();
    work();
    return {};
}

Fault beyondLimits() {
    return {
        kBeyond,
        "evaluating it takes more than a second, 64 MiB or 10000 values; remove functions and long tables"};
}

bool isBeyondLimits(const Fault& fault) {
    return fault.code() == kBeyond;
}
