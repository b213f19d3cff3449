#include "launcher/run/device_run.h"

#include "launcher/host_program.h"
#include "launcher/run/run_plan.h"
#include "launcher/run/sandbox_process.h"
#include "launcher/run/watch.h"
#include "launcher/sandbox/root_tree.h"
#include "launcher/syscalls/supervisor.h"
#include "launcher/tools/tool_server.h"
#include "launcher/web/web_server.h"
#include "rovu_sim/call_log.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/fault_rules.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/text_files.h"
#include "rovu_sim/tool_channel.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace rovusim {
namespace {

constexpr int kLookMilliseconds = 200;
constexpr int kLimitMilliseconds = 50;
constexpr unsigned kMostCalls = 64;             // of tools, that are answered at the same time
constexpr useconds_t kStopMicroseconds = 5000;  // between two signals to the web server

// What a run holds on the host until its end.
struct Run {
    std::string stateDir;  // absolute
    zem::Descriptor lock;
    zem::Descriptor output;
    zem::Descriptor signals;
    zem::Descriptor listener;
    StartPlan plan;
    SandboxProcess device;
    SandboxHandles handles;
    Supervisor supervisor;
    ToolServer tools;
    Watch watch;
    LimitWatch limits;
    pid_t web = -1;      // the web server
    unsigned calls = 0;  // of tools, that are being answered
    bool endsAtReboot = false;
    bool isRebooting = false;  // and ended for it
    std::string beyondLimit;   // and ended for it
};

int takeDevice(const RunOptions& options, Run* run) {
    char resolved[PATH_MAX];
    if (findProgram("bwrap").empty()) {
        complain("bubblewrap, in which a device runs, is not installed");
        return ENOENT;
    }
    if (realpath(options.stateDir.c_str(), resolved) == nullptr)
        return cannot("use", options.stateDir, errno);
    run->stateDir = run->plan.sandbox.stateDir = resolved;
    const int rc = lockDevice(resolved, &run->lock);
    if (rc == EBUSY) complain(options.stateDir + " is already running a command");
    if (rc == ENOENT) complain(options.stateDir + " is not a device; make one with \"rovu-sim init\"");
    if (rc != 0 && rc != EBUSY && rc != ENOENT) cannot("lock", options.stateDir, rc);
    return rc;
}

int writeRunFiles(const RunOptions& options, const std::string& stateDir) {
    Device device;
    if (int rc = loadDevice(stateDir, &device); rc != 0) return cannot("read the device in", stateDir, rc);
    const std::string line =
        options.commandLine.empty() ? kernelCommandLine(device.runningSet) : options.commandLine + "\n";
    int rc = replaceTextFile(stateDir + "/run/cmdline", line);
    if (rc == 0) rc = storeFaultRules(stateDir, options.failures);
    if (rc == 0) rc = beginRunInCallLog(stateDir, options.freshLog);
    return rc == 0 ? 0 : cannot("write to", stateDir, rc);
}

// The device's /tmp, as this process knows it during the run.
std::string tmpDuring(const Run& run) {
    std::string outside = run.stateDir + "/tmp";
    const std::vector<LimitedFolder>& limited = run.plan.namespaces.limited;
    for (size_t i = 0; i < limited.size() && i < run.handles.limited.size(); ++i) {
        if (limited[i].outside == outside) return pathOfLimited(run.handles.limited[i].get());
    }
    return outside;
}

// More than once: nginx loses a signal that comes while it starts, and then waits for the next one.
void stopServing(Run* run) {
    while (run->web > 0 && kill(run->web, SIGTERM) == 0 && waitpid(run->web, nullptr, WNOHANG) == 0)
        usleep(kStopMicroseconds);
    run->web = -1;
}

int openOutput(const RunOptions& options, Run* run) {
    if (options.log.empty()) return 0;
    run->output =
        zem::Descriptor(open(options.log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644));
    if (!run->output.isOpen()) return cannot("open", options.log, errno);
    run->plan.output = run->output.get();
    return 0;
}

int blockSignals(Run* run) {
    sigset_t awaited;
    sigemptyset(&awaited);
    for (int signal : {SIGCHLD, SIGTERM, SIGINT})
        sigaddset(&awaited, signal);
    sigprocmask(SIG_BLOCK, &awaited, &run->plan.signalMask);
    run->signals = zem::Descriptor(signalfd(-1, &awaited, SFD_CLOEXEC));
    return run->signals.isOpen() ? 0 : cannot("wait for", "signals", errno);
}

int startServing(Run* run) {
    if (run->plan.namespaces.served.empty()) return 0;
    run->web = startWebServer(webHomeOf(run->stateDir), run->handles.listeners, run->plan.signalMask);
    return run->web > 0 ? 0 : EIO;
}

int fillFolders(const Run& run) {
    for (size_t i = 0; i < run.handles.limited.size(); ++i) {
        const std::string& outside = run.plan.namespaces.limited[i].outside;
        if (int rc = fillLimitedFolder(run.handles.limited[i].get(), outside); rc != 0) return rc;
    }
    return 0;
}

int keepFolders(const Run& run) {
    for (size_t i = 0; i < run.handles.limited.size(); ++i) {
        const std::string& outside = run.plan.namespaces.limited[i].outside;
        if (int rc = keepLimitedFolder(run.handles.limited[i].get(), outside); rc != 0) return rc;
    }
    return 0;
}

// Process 1 waits for the last byte before it runs the command.
int superviseSyscalls(const RunOptions& options, Run* run) {
    std::string release;
    if (int rc = kernelReleaseInUse(run->stateDir, &release); rc != 0)
        return cannot("read the kernel release of", run->stateDir, rc);
    if (int rc = startSupervisor(run->listener.get(), run->stateDir, release, &run->supervisor); rc != 0)
        return rc;
    run->supervisor.tmp = tmpDuring(*run);
    run->supervisor.skipWaits = options.noWait;
    run->supervisor.watchesProgram = !options.syscallRules.empty() || !options.countFile.empty();
    run->supervisor.program.watch(run->device.init, options.syscallRules);
    return sendMessage(run->device.socket.get(), "r", 1, {});
}

void failWithoutServer(Run* run) {
    run->web = -1;
    complain("nginx, which --serve needs, did not start; what it says is in " + webHomeOf(run->stateDir) +
             "/error.log");
    kill(run->device.init, SIGKILL);
}

// True once the device has ended.
bool takeSignal(Run* run, int* exitStatus) {
    signalfd_siginfo info;
    if (read(run->signals.get(), &info, sizeof info) != static_cast<ssize_t>(sizeof info)) return false;
    const int signal = static_cast<int>(info.ssi_signo);
    // The terminal also sends its signals to the command; forwarding would double them.
    if (signal != SIGCHLD && info.ssi_code != SI_KERNEL) kill(run->device.init, signal);
    int status = 0;
    bool hasEnded = false;
    // The others are the tools' calls.
    for (pid_t ended = waitpid(-1, &status, WNOHANG); ended > 0; ended = waitpid(-1, &status, WNOHANG)) {
        if (ended == run->web) failWithoutServer(run);
        if (ended != run->web && ended != run->device.outer && run->calls > 0) --run->calls;
        if (ended != run->device.outer) continue;
        *exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : kExitSignalBase + WTERMSIG(status);
        hasEnded = true;
    }
    return hasEnded;
}

// Looked at with each round: a machine has few inotify instances, and may have many devices.
void endIfRebooting(Run* run) {
    if (run->isRebooting || !rebootRequested(run->stateDir)) return;
    run->isRebooting = true;
    kill(run->device.init, SIGKILL);
}

void endBeyondLimits(Run* run) {
    if (!run->beyondLimit.empty()) return;
    run->beyondLimit = lookAtLimits(run->device.init, run->supervisor.skippedMilliseconds, &run->limits);
    if (run->beyondLimit.empty()) return;
    complain("ended: " + run->beyondLimit);
    kill(run->device.init, SIGKILL);
}

void takeToolCall(Run* run) {
    const zem::Descriptor connection(accept4(run->tools.listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection.isOpen()) return;
    timeCaller(connection.get(), run->supervisor.skippedMilliseconds, &run->limits);
    if (answerTool(run->tools, connection.get())) ++run->calls;
}

int statusOf(const Run& run, int exitStatus) {
    if (!run.beyondLimit.empty()) return kExitLimit;
    return run.isRebooting ? 0 : exitStatus;
}

int superviseUntilEnd(Run* run) {
    int exitStatus = kExitSetupFailed;
    pollfd files[] = {
        {run->signals.get(), POLLIN, 0},
        {run->listener.get(), POLLIN, 0},
        {run->watch.changes.get(), POLLIN, 0},  // negative, and so ignored, without --watch
        {run->tools.listener.get(), POLLIN, 0},
    };
    const bool isLimited = isAnyLimit(run->limits.limits);
    const bool looksAgain = run->watch.changes.isOpen() || run->endsAtReboot;
    const int wait = isLimited ? kLimitMilliseconds : looksAgain ? kLookMilliseconds : -1;
    for (;;) {
        // Each is a process of the host, whose number a script must not control.
        files[3].fd = run->calls < kMostCalls ? run->tools.listener.get() : -1;
        if (poll(files, std::size(files), wait) < 0 && errno != EINTR) {
            cannot("wait for", "the device", errno);
            kill(run->device.init, SIGKILL);
            return exitStatus;
        }
        if ((files[1].revents & POLLIN) != 0) answerSyscall(&run->supervisor);
        // After the last process the listener would stay readable for ever.
        if ((files[1].revents & POLLHUP) != 0) files[1].fd = -1;
        if ((files[2].revents & POLLIN) != 0) followProgress(&run->watch);
        if ((files[3].revents & POLLIN) != 0) takeToolCall(run);
        if (run->endsAtReboot) endIfRebooting(run);
        if (isLimited) endBeyondLimits(run);
        redrawWatch(run->watch);
        if ((files[0].revents & POLLIN) != 0 && takeSignal(run, &exitStatus))
            return statusOf(*run, exitStatus);
    }
}

int prepareRun(const RunOptions& options, Run* run) {
    if (int rc = takeDevice(options, run); rc != 0) return rc;
    if (int rc = writeRunFiles(options, run->stateDir); rc != 0) return rc;
    if (int rc = blockSignals(run); rc != 0) return rc;
    if (int rc = prepareRootTree(run->stateDir, run->plan.signalMask); rc != 0) return rc;
    if (int rc = openOutput(options, run); rc != 0) return rc;
    if (!options.served.empty()) {
        if (int rc = prepareWeb(options.served, webHomeOf(run->stateDir), run->plan.signalMask); rc != 0)
            return rc;
    }
    run->endsAtReboot = options.untilReboot;
    run->limits.limits = options.limits;
    run->plan.mostProcesses = options.limits.processes;
    return planRun(options, &run->plan);
}

int startRun(const RunOptions& options, Run* run) {
    if (int rc = startSandbox(run->plan, &run->device, &run->handles); rc != 0) return rc;
    if (int rc = fillFolders(*run); rc != 0) return rc;
    if (int rc = startToolServer(run->stateDir, tmpDuring(*run), &run->tools); rc != 0) return rc;
    if (options.watch) {
        if (int rc = startWatch(tmpDuring(*run), &run->watch); rc != 0) return rc;
    }
    if (int rc = startServing(run); rc != 0) return rc;
    if (int rc = enterDevice(&run->device, &run->listener); rc != 0) return rc;
    return superviseSyscalls(options, run);
}

void endSandbox(Run* run) {
    run->device.socket.reset();
    if (run->device.outer > 0 && kill(run->device.outer, SIGKILL) == 0)
        waitpid(run->device.outer, nullptr, 0);
}

void printOutcome(const RunOptions& options, int exitStatus) {
    printf("exit status %d; output in %s\n", exitStatus, options.log.c_str());
    if (rebootRequested(options.stateDir))
        printf("The device requests a restart: rovu-sim restart %s\n", options.stateDir.c_str());
}

// Keeps what the run leaves on the host, and removes the rest.
int finishRun(const RunOptions& options, int exitStatus, Run* run) {
    run->supervisor.program.finish();
    stopToolServer(run->tools);
    stopServing(run);
    if (!options.countFile.empty()) {
        if (int rc = replaceTextFile(options.countFile, run->supervisor.program.counts()); rc != 0)
            cannot("write", options.countFile, rc);
    }
    if (options.watch) {
        finishWatch(&run->watch);
        printOutcome(options, exitStatus);
    }
    const bool isKept = keepFolders(*run) == 0;
    if (int rc = storeFaultRules(run->stateDir, {}); rc != 0)
        cannot("remove the fault rules of", run->stateDir, rc);
    removeBindLeftovers(run->plan.sandbox);
    return isKept ? exitStatus : kExitSetupFailed;
}

}  // namespace

int prepareRoot(const std::string& stateDir) {
    sigset_t none;
    sigemptyset(&none);
    return prepareRootTree(stateDir, none);
}

int runInDevice(const RunOptions& options) {
    Run run;
    if (prepareRun(options, &run) != 0) return kExitSetupFailed;
    if (startRun(options, &run) == 0) return finishRun(options, superviseUntilEnd(&run), &run);
    endSandbox(&run);
    stopServing(&run);
    return kExitSetupFailed;
}

}  // namespace rovusim
