#include "launcher/run/sandbox_process.h"

#include "launcher/host_program.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/tool_channel.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace rovusim {
namespace {

// What the new process says before it becomes bubblewrap.
struct Entered {
    // Of the descriptors that come with it, so many are tmpfs; the last is for bubblewrap's news.
    uint32_t limited = 0;
};

std::string maskText(const sigset_t& mask) {
    uint64_t bits = 0;
    for (int signal = 1; signal <= 64; ++signal) {
        if (sigismember(&mask, signal) == 1) bits |= uint64_t{1} << static_cast<unsigned>(signal - 1);
    }
    char text[17];
    snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(bits));
    return text;
}

std::vector<std::string> initCommand(const StartPlan& plan) {
    std::vector<std::string> words = {kInitInside, std::to_string(kSocketNumber),
                                      std::to_string(plan.filter.get()), std::to_string(plan.output),
                                      maskText(plan.signalMask)};
    words.insert(words.end(), plan.initWords.begin(), plan.initWords.end());
    return words;
}

void keepOpen(int fd) {
    if (fd >= 0) fcntl(fd, F_SETFD, 0);
}

int sendHandles(int socket, const SandboxHandles& handles, int news) {
    std::vector<int> passed;
    for (const auto* list : {&handles.limited, &handles.listeners}) {
        for (const zem::Descriptor& handle : *list)
            passed.push_back(handle.get());
    }
    passed.push_back(news);
    const Entered entered = {static_cast<uint32_t>(handles.limited.size())};
    return sendMessage(socket, &entered, sizeof entered, passed);
}

[[noreturn]] void become(const StartPlan& plan, int socket, pid_t parent) {
    // No process of the device outlives the launcher. The check closes the gap before the call.
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent) _exit(kExitSetupFailed);
    const rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);  // the host may keep it
    SandboxHandles handles;
    bool hasUserNamespace = false;
    int news[2];
    char go = 0;
    if (enterNamespaces(plan.namespaces, &hasUserNamespace, &handles) != 0) _exit(kExitSetupFailed);
    // The kernel counts those of the new user namespace, and does not heed it for the host's root. The launcher ends a run
    // earlier, and says why.
    const rlimit processes = {2 * plan.mostProcesses, 2 * plan.mostProcesses};
    if (plan.mostProcesses != 0) setrlimit(RLIMIT_NPROC, &processes);
    if (pipe2(news, O_CLOEXEC) != 0 || sendHandles(socket, handles, news[0]) != 0 ||
        read(socket, &go, 1) != 1)
        _exit(kExitSetupFailed);
    // Not close-on-exec, and under the number that the filter knows.
    if (dup2(socket, kSocketNumber) < 0) _exit(kExitSetupFailed);
    for (const int fd : {plan.filter.get(), plan.output, news[1]})
        keepOpen(fd);
    const std::vector<std::string> words =
        bubblewrapCommand(plan.sandbox, hasUserNamespace, news[1], initCommand(plan));
    sigset_t blocked;
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    becomeHostProgram(words, blocked);
}

// Bubblewrap tells the number of process 1 before it starts it.
pid_t readInit(int news) {
    std::string text;
    char part[256];
    for (ssize_t got = read(news, part, sizeof part); got > 0; got = read(news, part, sizeof part))
        text.append(part, static_cast<size_t>(got));
    const std::string key = "\"child-pid\":";
    const size_t at = text.find(key);
    return at == std::string::npos ? -1 : atoi(text.c_str() + at + key.size());
}

}  // namespace

int startSandbox(const StartPlan& plan, SandboxProcess* process, SandboxHandles* handles) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return cannot("make", "a socket pair", errno);
    process->socket.reset(ends[0]);
    zem::Descriptor theirs(ends[1]);
    const pid_t parent = getpid();
    process->outer = fork();
    if (process->outer < 0) return cannot("start", "a process", errno);
    if (process->outer == 0) {
        process->socket.reset();
        become(plan, theirs.get(), parent);
    }
    theirs.reset();
    Entered entered;
    std::vector<zem::Descriptor> passed;
    if (int rc = receiveMessage(process->socket.get(), &entered, sizeof entered, &passed); rc != 0) return rc;
    if (passed.size() < entered.limited + 1) return EPIPE;
    process->news = std::move(passed.back());
    passed.pop_back();
    for (size_t i = 0; i < passed.size(); ++i)
        (i < entered.limited ? handles->limited : handles->listeners).push_back(std::move(passed[i]));
    return 0;
}

int enterDevice(SandboxProcess* process, zem::Descriptor* listener) {
    if (int rc = sendMessage(process->socket.get(), "g", 1, {}); rc != 0) return rc;
    process->init = readInit(process->news.get());
    process->news.reset();
    char ready = 0;
    std::vector<zem::Descriptor> passed;
    if (int rc = receiveMessage(process->socket.get(), &ready, 1, &passed); rc != 0) return rc;
    if (passed.size() != 1 || process->init <= 0) return EPIPE;
    *listener = std::move(passed.front());
    return 0;
}

}  // namespace rovusim
