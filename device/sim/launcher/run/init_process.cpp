#include "launcher/run/init_process.h"

#include "launcher/message.h"
#include "launcher/sandbox/privileges.h"
#include "launcher/web/web_server.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/socket_message.h"
#include "util/descriptor.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace rovusim {
namespace {

// Between the installation of the filter and the byte from the launcher, a call that the filter passes on
// would block for ever; so the two calls on the socket are exempt.
int handOverSyscalls(const InitPlan& plan) {
    zem::Descriptor listener;
    if (int rc = installSyscallFilter(plan.filter, &listener); rc != 0) return rc;
    char ready = 'l';
    if (int rc = sendMessage(plan.socket, &ready, 1, {listener.get()}); rc != 0) return rc;
    return read(plan.socket, &ready, 1) == 1 ? 0 : EPIPE;
}

int handOverPorts(const InitPlan& plan) {
    std::vector<zem::Descriptor> listeners;
    if (int rc = openPorts(plan.served, &listeners); rc != 0) return rc;
    std::vector<int> passed;
    passed.reserve(listeners.size());
    for (const zem::Descriptor& listener : listeners)
        passed.push_back(listener.get());
    return sendMessage(plan.socket, "p", 1, passed);
}

int prepareDevice(const InitPlan& plan) {
    // No process of the device outlives the launcher.
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) return cannot("tie the device to", "the launcher", errno);
    if (int rc = enterSandboxRoot(plan.sandbox); rc != 0) return rc;
    if (int rc = plan.served.empty() ? 0 : handOverPorts(plan); rc != 0) return rc;
    if (int rc = handOverSyscalls(plan); rc != 0) return rc;
    if (int rc = dropHostPrivileges(); rc != 0) return rc;
    if (chdir(plan.workingDirectory.c_str()) != 0 && chdir("/") != 0) return cannot("enter", "/", errno);
    return 0;
}

// The host's may hold tokens and proxies. This process would show them too, in /proc/1/environ.
void takeEnvironment(const std::vector<std::string>& settings) {
    const char* terminal = getenv("TERM");
    const std::string kept = terminal == nullptr ? "" : terminal;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry)
        explicit_bzero(*entry, strlen(*entry));
    clearenv();
    setenv("PATH", kPathInside, 1);
    setenv("HOME", "/root", 1);
    setenv("SHELL", "/bin/sh", 1);
    for (const char* name : {"USER", "LOGNAME"})
        setenv(name, "root", 1);
    if (!kept.empty()) setenv("TERM", kept.c_str(), 1);
    for (const std::string& setting : settings)
        putenv(const_cast<char*>(setting.c_str()));
}

[[noreturn]] void runCommand(const InitPlan& plan) {
    if (plan.output >= 0 && (dup2(plan.output, 1) < 0 || dup2(plan.output, 2) < 0)) _exit(kExitSetupFailed);
    std::vector<char*> argv;
    for (const std::string& word : plan.command)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    sigprocmask(SIG_SETMASK, &plan.signalMask, nullptr);
    execvp(plan.program.c_str(), argv.data());
    const int rc = errno;
    if (rc == ENOENT && plan.program.find('/') == std::string::npos) {
        complain(plan.program + " is not in the device's PATH, " + kPathInside +
                 (plan.programOnHost.empty()
                      ? "; give its path"
                      : "; the host's PATH has it as " + plan.programOnHost + ": give that path"));
    } else {
        cannot("run", plan.command.front(), rc);
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

void runInit(const InitPlan& plan) {
    if (prepareDevice(plan) != 0) _exit(kExitSetupFailed);
    takeEnvironment(plan.environment);
    const pid_t command = fork();
    if (command < 0) {
        cannot("start", "a process", errno);
        _exit(kExitSetupFailed);
    }
    if (command == 0) runCommand(plan);

    sigset_t awaited;
    sigemptyset(&awaited);
    for (int signal : {SIGCHLD, SIGTERM, SIGINT})
        sigaddset(&awaited, signal);
    int exitStatus = 0;
    while (!reap(command, &exitStatus)) {
        siginfo_t info = {};
        const int signal = sigwaitinfo(&awaited, &info);
        if ((signal == SIGTERM || signal == SIGINT) && isFromLauncher(info)) kill(command, signal);
    }
    _exit(exitStatus);
}

}  // namespace rovusim
