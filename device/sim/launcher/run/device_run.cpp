#include "launcher/run/device_run.h"

#include "launcher/message.h"
#include "launcher/run/init_process.h"
#include "launcher/run/watch.h"
#include "launcher/sandbox/limited_tmp.h"
#include "launcher/sandbox/sandbox_root.h"
#include "launcher/syscalls/supervisor.h"
#include "launcher/syscalls/volume_stat.h"
#include "launcher/tools/tool_server.h"
#include "launcher/web/web_server.h"
#include "rovu_sim/call_log.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/fault_rules.h"
#include "rovu_sim/socket_message.h"
#include "rovu_sim/state_lock.h"
#include "rovu_sim/text_files.h"
#include "rovu_sim/tool_names.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <sched.h>
#include <sstream>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace rovusim {
namespace {

constexpr int kLookMilliseconds = 200;
constexpr useconds_t kStopMicroseconds = 5000;  // between two signals to the web server
constexpr int kSocketNumber = 250;              // lowest descriptor number for the end of process 1

// What a run holds on the host until its end.
struct Run {
    zem::Descriptor lock;
    zem::Descriptor tmp;  // the tmpfs of a limited /tmp
    zem::Descriptor output;
    zem::Descriptor ourEnd;  // of the socket pair with process 1
    zem::Descriptor theirEnd;
    zem::Descriptor signals;
    zem::Descriptor listener;
    Supervisor supervisor;
    ToolServer tools;
    Watch watch;
    InitPlan plan;
    pid_t init = -1;
    pid_t web = -1;  // the web server
    bool endsAtReboot = false;
    bool isRebooting = false;  // and ended for it
};

int takeDevice(const RunOptions& options, Run* run) {
    if (geteuid() != 0) {
        complain("running a command in a device needs root (for mounts and namespaces); try sudo");
        return EPERM;
    }
    char resolved[PATH_MAX];
    if (realpath(options.stateDir.c_str(), resolved) == nullptr)
        return cannot("use", options.stateDir, errno);
    run->plan.sandbox.stateDir = resolved;
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

int limitTmp(Run* run) {
    SandboxPlan& sandbox = run->plan.sandbox;
    Device device;
    if (int rc = loadDevice(sandbox.stateDir, &device); rc != 0)
        return cannot("read the device in", sandbox.stateDir, rc);
    if (device.tmpBytes == 0) return 0;
    const int rc = openLimitedTmp(sandbox.stateDir, device.tmpBytes, &run->tmp);
    sandbox.tmp = run->tmp.get();
    return rc;
}

// The device's /tmp, as this process knows it during the run.
std::string tmpDuring(const Run& run) {
    return run.tmp.isOpen() ? pathOfLimitedTmp(run.tmp.get()) : run.plan.sandbox.stateDir + "/tmp";
}

std::string webHomeOf(const Run& run) {
    return run.plan.sandbox.stateDir + "/run/serve";
}

// More than once: nginx loses a signal that comes while it starts, and then waits for the next one.
void stopServing(Run* run) {
    while (run->web > 0 && kill(run->web, SIGTERM) == 0 && waitpid(run->web, nullptr, WNOHANG) == 0)
        usleep(kStopMicroseconds);
    run->web = -1;
}

int findToolProgram(std::string* path) {
    char self[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length < 0) return cannot("read", "/proc/self/exe", errno);
    self[length] = '\0';
    *path = self;
    *path = path->substr(0, path->rfind('/')) + "/rovu-sim-tool";
    return access(path->c_str(), X_OK) == 0 ? 0 : cannot("use", *path, errno);
}

// Without dots and doubled slashes, but with symbolic links unchanged: the path must be the same inside.
int absolutePath(const std::string& given, std::string* path) {
    char resolved[PATH_MAX];
    if (realpath(given.c_str(), resolved) == nullptr) return cannot("bind", given, errno);
    *path = resolved;
    const bool plain =
        given[0] == '/' && given.find("/.") == std::string::npos && given.find("//") == std::string::npos;
    if (plain) *path = given;
    while (path->size() > 1 && path->back() == '/')
        path->pop_back();
    return 0;
}

bool isToolPath(const std::string& path) {
    const std::string directory = "/usr/local/bin/";
    if (path.compare(0, directory.size(), directory) != 0) return false;
    const std::string name = path.substr(directory.size());
    const auto same = [&name](const char* tool) { return name == tool; };
    return std::any_of(std::begin(kSimulatedTools), std::end(kSimulatedTools), same) ||
           std::any_of(std::begin(kPassThroughs), std::end(kPassThroughs), same);
}

// Where the host's PATH has a program; empty: nowhere.
std::string findOnHost(const std::string& name) {
    const char* list = getenv("PATH");
    std::istringstream folders(list == nullptr ? "" : list);
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::string path = folder;
        path += "/" + name;
        if (access(path.c_str(), X_OK) == 0) return path;
    }
    return "";
}

// The program gets an absolute path: the working directory inside may be another one.
int resolveProgram(Run* run) {
    InitPlan& plan = run->plan;
    plan.program = plan.command.front();
    if (plan.program.find('/') == std::string::npos) {
        plan.programOnHost = findOnHost(plan.program);  // its folder may be hidden inside, as /tmp is
        return 0;
    }
    char resolved[PATH_MAX];
    // A path that does not exist here may exist inside, such as a script in the device's own /tmp.
    if (realpath(plan.program.c_str(), resolved) == nullptr) return 0;
    if (access(outsidePath(plan.sandbox.stateDir, plan.program).c_str(), F_OK) == 0) return 0;
    if (isToolPath(plan.program)) return 0;
    plan.program = resolved;
    if (isHiddenInside(plan.program)) plan.sandbox.binds.push_back(plan.program);
    return 0;
}

// Some resolvers keep their configuration below /run, which is hidden inside.
void keepNameResolution(SandboxPlan* sandbox) {
    char resolved[PATH_MAX];
    if (realpath("/etc/resolv.conf", resolved) == nullptr) return;
    if (isHiddenInside(resolved)) sandbox->binds.emplace_back(resolved);
}

// Without options nothing but uname is passed on, since each call that is costs a switch to the launcher.
void planFilter(const RunOptions& options, FilterPlan* filter) {
    filter->all = !options.countFile.empty();
    filter->calls = {SYS_uname};
    filter->statCalls = {std::begin(kStatCalls), std::end(kStatCalls)};
    if (options.noWait) filter->calls.insert(filter->calls.end(), {SYS_nanosleep, SYS_clock_nanosleep});
    if (options.syscallRules.empty()) return;
    filter->calls.push_back(SYS_execve);  // by which the supervisor recognises the command's process
    for (const SyscallRule& rule : options.syscallRules)
        filter->calls.push_back(rule.number);
}

int planInside(const RunOptions& options, Run* run) {
    InitPlan& plan = run->plan;
    plan.command = options.command;
    plan.environment = options.environment;
    planFilter(options, &plan.filter);
    if (int rc = findToolProgram(&plan.sandbox.toolProgram); rc != 0) return rc;
    for (const std::string& given : options.binds) {
        std::string path;
        if (int rc = absolutePath(given, &path); rc != 0) return rc;
        plan.sandbox.binds.push_back(path);
    }
    plan.served = options.served;
    if (!plan.served.empty()) plan.sandbox.replaced = webFiles(plan.served, webHomeOf(*run));
    if (int rc = resolveProgram(run); rc != 0) return rc;
    keepNameResolution(&plan.sandbox);
    char directory[PATH_MAX];
    plan.workingDirectory = getcwd(directory, sizeof directory) != nullptr ? directory : "/";
    return 0;
}

int openOutput(const RunOptions& options, Run* run) {
    if (options.log.empty()) return 0;
    run->output =
        zem::Descriptor(open(options.log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644));
    if (!run->output.isOpen()) return cannot("open", options.log, errno);
    run->plan.output = run->output.get();
    return 0;
}

int openChannels(Run* run) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return cannot("make", "a socket pair", errno);
    run->ourEnd = zem::Descriptor(ends[0]);
    // A number that no program inside uses, for the filter exempts it also from the program's calls.
    run->theirEnd.reset(fcntl(ends[1], F_DUPFD_CLOEXEC, kSocketNumber));
    close(ends[1]);
    if (!run->theirEnd.isOpen()) return cannot("make", "a socket pair", errno);
    run->plan.socket = run->theirEnd.get();
    run->plan.filter.exemptSocket = run->plan.socket;
    sigset_t awaited;
    sigemptyset(&awaited);
    for (int signal : {SIGCHLD, SIGTERM, SIGINT})
        sigaddset(&awaited, signal);
    sigprocmask(SIG_BLOCK, &awaited, &run->plan.signalMask);
    run->signals = zem::Descriptor(signalfd(-1, &awaited, SFD_CLOEXEC));
    return run->signals.isOpen() ? 0 : cannot("wait for", "signals", errno);
}

int startInit(Run* run) {
    unsigned long namespaces = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWIPC | CLONE_NEWUTS;
    if (!run->plan.served.empty()) namespaces |= CLONE_NEWNET;
    // A plain fork into new namespaces. unshare would also change this process.
    const long child = syscall(SYS_clone, namespaces | SIGCHLD, nullptr, nullptr, nullptr, nullptr);
    if (child < 0) return cannot("make", "namespaces", errno);
    if (child == 0) {
        run->ourEnd.reset();
        runInit(run->plan);
    }
    run->init = static_cast<pid_t>(child);
    run->theirEnd.reset();
    return 0;
}

// Process 1 sends the sockets once the network is set up. If its setup fails, it exits instead.
int startServing(Run* run) {
    if (run->plan.served.empty()) return 0;
    char message = 0;
    std::vector<zem::Descriptor> listeners;
    if (receiveMessage(run->ourEnd.get(), &message, 1, &listeners) != 0) return 0;
    run->web = startWebServer(webHomeOf(*run), listeners, run->plan.signalMask);
    return run->web > 0 ? 0 : EIO;
}

// Process 1 sends the listener once the device is set up. If its setup fails, it exits instead.
int takeOverSyscalls(const RunOptions& options, Run* run) {
    char ready = 0;
    std::vector<zem::Descriptor> sent;
    if (receiveMessage(run->ourEnd.get(), &ready, 1, &sent) != 0 || sent.size() != 1) return 0;
    run->listener = std::move(sent.front());
    std::string release;
    if (int rc = kernelReleaseInUse(run->plan.sandbox.stateDir, &release); rc != 0)
        return cannot("read the device in", run->plan.sandbox.stateDir, rc);
    if (int rc = startSupervisor(run->listener.get(), run->plan.sandbox.stateDir, release, &run->supervisor);
        rc != 0)
        return rc;
    run->supervisor.tmp = tmpDuring(*run);
    run->supervisor.skipWaits = options.noWait;
    run->supervisor.watchesProgram = !options.syscallRules.empty() || !options.countFile.empty();
    run->supervisor.program.watch(run->init, options.syscallRules);
    return writeFully(run->ourEnd.get(), "r", 1);
}

void failWithoutServer(Run* run) {
    run->web = -1;
    complain("nginx, which --serve needs, did not start; what it says is in " + webHomeOf(*run) +
             "/error.log");
    kill(run->init, SIGKILL);
}

// True once process 1 has ended.
bool takeSignal(Run* run, int* exitStatus) {
    signalfd_siginfo info;
    if (read(run->signals.get(), &info, sizeof info) != static_cast<ssize_t>(sizeof info)) return false;
    const int signal = static_cast<int>(info.ssi_signo);
    // The terminal also sends its signals to the command; forwarding would double them.
    if (signal != SIGCHLD && info.ssi_code != SI_KERNEL) kill(run->init, signal);
    int status = 0;
    bool hasEnded = false;
    // The others are the tools' calls.
    for (pid_t ended = waitpid(-1, &status, WNOHANG); ended > 0; ended = waitpid(-1, &status, WNOHANG)) {
        if (ended == run->web) failWithoutServer(run);
        if (ended != run->init) continue;
        *exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : kExitSignalBase + WTERMSIG(status);
        hasEnded = true;
    }
    return hasEnded;
}

// Looked at with each round: a machine has few inotify instances, and may have many devices.
void endIfRebooting(Run* run) {
    if (run->isRebooting || !rebootRequested(run->plan.sandbox.stateDir)) return;
    run->isRebooting = true;
    kill(run->init, SIGKILL);
}

int superviseUntilEnd(Run* run) {
    int exitStatus = kExitSetupFailed;
    pollfd files[] = {
        {run->signals.get(), POLLIN, 0},
        {run->listener.get(), POLLIN, 0},
        {run->watch.changes.get(), POLLIN, 0},  // negative, and so ignored, without --watch
        {run->tools.listener.get(), POLLIN, 0},
    };
    const bool looksAgain = run->watch.changes.isOpen() || run->endsAtReboot;
    for (;;) {
        if (poll(files, std::size(files), looksAgain ? kLookMilliseconds : -1) < 0 && errno != EINTR) {
            cannot("wait for", "the device", errno);
            kill(run->init, SIGKILL);
            return exitStatus;
        }
        if ((files[1].revents & POLLIN) != 0) answerSyscall(&run->supervisor);
        // After the last process the listener would stay readable for ever.
        if ((files[1].revents & POLLHUP) != 0) files[1].fd = -1;
        if ((files[2].revents & POLLIN) != 0) followProgress(&run->watch);
        if ((files[3].revents & POLLIN) != 0) answerTool(run->tools);
        if (run->endsAtReboot) endIfRebooting(run);
        redrawWatch(run->watch);
        if ((files[0].revents & POLLIN) != 0 && takeSignal(run, &exitStatus))
            return run->isRebooting ? 0 : exitStatus;
    }
}

int prepareRun(const RunOptions& options, Run* run) {
    if (int rc = takeDevice(options, run); rc != 0) return rc;
    if (int rc = writeRunFiles(options, run->plan.sandbox.stateDir); rc != 0) return rc;
    if (int rc = limitTmp(run); rc != 0) return rc;
    if (int rc = startToolServer(run->plan.sandbox.stateDir, tmpDuring(*run), &run->tools); rc != 0)
        return rc;
    if (int rc = planInside(options, run); rc != 0) return rc;
    if (int rc = openOutput(options, run); rc != 0) return rc;
    if (options.watch) {
        if (int rc = startWatch(tmpDuring(*run), &run->watch); rc != 0) return rc;
    }
    run->endsAtReboot = options.untilReboot;
    if (int rc = openChannels(run); rc != 0) return rc;
    return options.served.empty() ? 0 : prepareWeb(options.served, webHomeOf(*run), run->plan.signalMask);
}

void printOutcome(const RunOptions& options, int exitStatus) {
    printf("exit status %d; output in %s\n", exitStatus, options.log.c_str());
    if (rebootRequested(options.stateDir))
        printf("The device requests a restart: rovu-sim restart %s\n", options.stateDir.c_str());
}

}  // namespace

int runInDevice(const RunOptions& options) {
    Run run;
    if (prepareRun(options, &run) != 0) return kExitSetupFailed;
    if (startInit(&run) != 0) return kExitSetupFailed;
    if (startServing(&run) != 0 || takeOverSyscalls(options, &run) != 0) kill(run.init, SIGKILL);
    const int exitStatus = superviseUntilEnd(&run);
    run.supervisor.program.finish();
    stopToolServer(run.tools);
    stopServing(&run);
    if (!options.countFile.empty()) {
        if (int rc = replaceTextFile(options.countFile, run.supervisor.program.counts()); rc != 0)
            cannot("write", options.countFile, rc);
    }
    if (options.watch) {
        finishWatch(&run.watch);
        printOutcome(options, exitStatus);
    }
    const bool isKept = !run.tmp.isOpen() || keepLimitedTmp(run.tmp.get(), run.plan.sandbox.stateDir) == 0;
    if (int rc = storeFaultRules(run.plan.sandbox.stateDir, {}); rc != 0)
        cannot("remove the fault rules of", run.plan.sandbox.stateDir, rc);
    removeBindLeftovers(run.plan.sandbox);
    return isKept ? exitStatus : kExitSetupFailed;
}

}  // namespace rovusim
