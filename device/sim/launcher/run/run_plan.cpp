#include "launcher/run/run_plan.h"

#include "host/child.h"
#include "launcher/host_program.h"
#include "launcher/sandbox/foreign_processor.h"
#include "launcher/sandbox/root_tree.h"
#include "launcher/syscalls/supervisor.h"
#include "launcher/syscalls/syscall_filter.h"
#include "launcher/web/web_server.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/shell_words.h"
#include "rovu_sim/text_files.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace rovusim {
namespace {

constexpr uint64_t kLayerBytes = 256 << 20;  // of memory at most, for what a run without a limit writes

std::string baseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// A program of the workstation that runs inside a device. The device's root file system need not have its loader and
// libraries, or has others of the same names. So it is handed in with its own, at a fixed path, and started by its own
// loader.
struct HandedProgram {
    std::string path;                  // inside
    std::vector<std::string> command;  // that starts it; the command's own words follow
    std::vector<std::pair<std::string, std::string>>
        files;  // of the workstation, and where they stand inside
};

// `path` is absolute, on the workstation; `argv0` the name that the program is to see.
HandedProgram handProgram(const std::string& path, const std::string& argv0) {
    const std::string folder = kProgramInside, libraries = folder + "/lib";
    HandedProgram program;
    program.path = folder + "/" + baseName(path);
    program.files.emplace_back(path, program.path);
    std::string loader;
    std::string listed;
    // None of a static program, a script, or a program of another processor.
    if (!readOutput("ldd " + quoteForShell(path), &listed)) listed.clear();
    for (std::string line : splitLines(listed)) {
        // "name => /path (address)", or "/path (address)" for the loader
        line.erase(0, line.find_first_not_of(" \t"));
        const size_t arrow = line.find(" => /"), start = line.find('/');
        if (start == std::string::npos) continue;
        const std::string file = line.substr(start, line.find(" (", start) - start);
        if (arrow == std::string::npos) {
            loader = file;
        } else {
            program.files.emplace_back(file, libraries + "/" + line.substr(0, arrow));
        }
    }
    if (loader.empty()) {
        program.command = {program.path, argv0};
        return program;
    }
    // Under the program's name: that is what ps and killall inside know it by.
    const std::string started = folder + "/loader/" + baseName(path);
    program.files.emplace_back(loader, started);
    program.command = {started, started, "--library-path", libraries, "--argv0", argv0, program.path};
    return program;
}

// A shell script that starts it, for a place where the program itself could not be started; empty: it could.
std::string starterOf(const HandedProgram& program) {
    if (program.files.size() < 2) return "";
    std::string script = "#!/bin/sh\nexec";
    for (size_t i = 1; i < program.command.size(); ++i)
        script.append(" ").append(quoteForShell(program.command[i]));
    return script + " \"$@\"\n";
}

// Opens a path of the device's root file system as a process inside would.
zem::Descriptor openInRoot(const std::string& stateDir, const std::string& path, uint64_t flags) {
    const zem::Descriptor root(open(rootTreeOf(stateDir).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    open_how how = {};
    how.flags = flags | O_CLOEXEC;
    how.resolve = RESOLVE_IN_ROOT;
    return zem::Descriptor(
        static_cast<int>(syscall(SYS_openat2, root.get(), path.c_str(), &how, sizeof how)));
}

bool isInside(const StartPlan& plan, const std::string& path) {
    const std::string& stateDir = plan.sandbox.stateDir;
    const std::string kept = outsidePath(stateDir, path);
    if (!kept.empty()) return access(kept.c_str(), F_OK) == 0;
    const bool isShown = plan.sandbox.hasHostPrograms && path.compare(0, 5, "/usr/") == 0;
    if (isShown && access(path.c_str(), F_OK) == 0) return true;
    return openInRoot(stateDir, path, O_PATH | O_NOFOLLOW).isOpen();
}

// Bubblewrap makes mount points, and follows links on its way to them. Those of an update's root must not lead it out.
bool isBehindLink(const std::string& stateDir, const std::string& path) {
    const zem::Descriptor root(open(rootTreeOf(stateDir).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    open_how how = {};
    how.flags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
    how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_SYMLINKS;
    const zem::Descriptor file(
        static_cast<int>(syscall(SYS_openat2, root.get(), path.c_str(), &how, sizeof how)));
    return !file.isOpen() && errno == ELOOP;
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

// A program is shown with what it needs. The device's own loader and libraries may be missing, or others.
int planBind(const std::string& path, SandboxPlan* sandbox) {
    struct stat info;
    const bool isProgram =
        stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && (info.st_mode & 0111) != 0;
    const HandedProgram handed =
        isProgram && !sandbox->hasHostPrograms ? handProgram(path, path) : HandedProgram();
    const std::string script = starterOf(handed);
    if (!sandbox->hasHostPrograms && isBehindLink(sandbox->stateDir, path)) {
        complain("cannot show " + path + ": blocked by a link in the device's root file system");
        return ELOOP;
    }
    sandbox->binds.push_back(path);
    if (script.empty()) return 0;
    const std::string starter = sandbox->stateDir + "/run/start" + std::to_string(sandbox->files.size());
    if (int rc = replaceTextFile(starter, script); rc != 0) return cannot("write", starter, rc);
    if (chmod(starter.c_str(), 0755) != 0) return cannot("write", starter, errno);
    sandbox->files.insert(sandbox->files.end(), handed.files.begin(), handed.files.end());
    sandbox->files.emplace_back(starter, path);
    return 0;
}

std::string hintFor(const std::string& program) {
    const std::string onHost = program.find('/') == std::string::npos ? findProgram(program) : "";
    if (onHost.empty()) return "give its path";
    return "the workstation has it as " + onHost +
           ": give that path to run it inside, or make a device with its "
           "programs (rovu-sim init --host-tools)";
}

// The program gets an absolute path: the working directory inside may be another one.
void planProgram(const RunOptions& options, StartPlan* plan) {
    char directory[PATH_MAX], resolved[PATH_MAX];
    std::vector<std::string> command = options.command;
    const std::string name = command.front();
    command.insert(command.begin(), name);
    const bool isOfHost = name.find('/') != std::string::npos && realpath(name.c_str(), resolved) != nullptr;
    // A path that exists inside is that of the device, such as /bin/sh, or a script in its /tmp.
    if (isOfHost && !(name[0] == '/' && isInside(*plan, name))) {
        const HandedProgram handed = handProgram(resolved, name);
        plan->sandbox.files.insert(plan->sandbox.files.end(), handed.files.begin(), handed.files.end());
        command.erase(command.begin(), command.begin() + 2);
        command.insert(command.begin(), handed.command.begin(), handed.command.end());
    }
    plan->initWords = {getcwd(directory, sizeof directory) != nullptr ? directory : "/", hintFor(name)};
    plan->initWords.insert(plan->initWords.end(), command.begin(), command.end());
}

int planFilter(const RunOptions& options, StartPlan* plan) {
    FilterPlan filter;
    filter.exemptSocket = kSocketNumber;
    filter.all = !options.countFile.empty();
    filter.calls = kOwnerCalls;
    filter.calls.insert(filter.calls.end(), kPathStatCalls.begin(), kPathStatCalls.end());
    filter.calls.push_back(SYS_uname);
    filter.statCalls = {std::begin(kStatCalls), std::end(kStatCalls)};
    if (options.noWait) filter.calls.insert(filter.calls.end(), {SYS_nanosleep, SYS_clock_nanosleep});
    // By which the supervisor recognises the command's process.
    if (!options.syscallRules.empty()) filter.calls.push_back(SYS_execve);
    for (const SyscallRule& rule : options.syscallRules)
        filter.calls.push_back(rule.number);
    return writeSyscallFilter(filter, &plan->filter);
}

int limitFolder(const std::string& stateDir, const char* path, uint64_t bytes, StartPlan* plan) {
    LimitedFolder folder;
    folder.outside = outsidePath(stateDir, path);
    folder.mountedOn = stateDir + "/run/limited" + std::to_string(plan->namespaces.limited.size());
    folder.bytes = bytes;
    if (int rc = makeDirectories(folder.mountedOn); rc != 0) return cannot("make", folder.mountedOn, rc);
    plan->sandbox.limited.emplace_back(folder.outside, folder.mountedOn);
    plan->namespaces.limited.push_back(folder);
    return 0;
}

int planRoot(const RunOptions& options, StartPlan* plan) {
    const std::string& stateDir = plan->sandbox.stateDir;
    LimitedFolder& top = plan->namespaces.root.top;
    plan->namespaces.root.tree = rootTreeOf(stateDir);
    top.mountedOn = stateDir + "/run/layer";
    top.bytes = options.diskBytes != 0 ? options.diskBytes : kLayerBytes;
    plan->sandbox.root = top.mountedOn + "/root";
    const int rc = makeDirectories(top.mountedOn);
    return rc == 0 ? 0 : cannot("make", top.mountedOn, rc);
}

int planFolders(const RunOptions& options, const Device& device, StartPlan* plan) {
    const std::string& stateDir = plan->sandbox.stateDir;
    const uint64_t tmp = device.tmpBytes != 0 ? device.tmpBytes : options.diskBytes;
    int rc = tmp == 0 ? 0 : limitFolder(stateDir, "/tmp", tmp, plan);
    for (const char* path : {"/app0", "/etc/ssh"}) {
        if (rc == 0 && options.diskBytes != 0) rc = limitFolder(stateDir, path, options.diskBytes, plan);
    }
    plan->namespaces.scratch = stateDir + "/run/scratch";
    if (rc == 0) rc = makeDirectories(plan->namespaces.scratch);
    return rc;
}

}  // namespace

std::string webHomeOf(const std::string& stateDir) {
    return stateDir + "/run/serve";
}

int planRun(const RunOptions& options, StartPlan* plan) {
    SandboxPlan& sandbox = plan->sandbox;
    Device device;
    if (int rc = loadDevice(sandbox.stateDir, &device); rc != 0)
        return cannot("read the device in", sandbox.stateDir, rc);
    sandbox.environment = options.environment;
    sandbox.hasHostPrograms = isOfHostPrograms(sandbox.stateDir);
    sandbox.usesHostNetwork = plan->namespaces.usesHostNetwork = options.usesHostNetwork;
    plan->namespaces.served = options.served;
    sandbox.toolProgram = programBesideThis("rovu-sim-tool");
    // Not one of the current folder.
    if (sandbox.toolProgram.find('/') == std::string::npos)
        return cannot("find", sandbox.toolProgram + " beside rovu-sim", ENOENT);
    for (const std::string& given : options.binds) {
        std::string path;
        if (int rc = absolutePath(given, &path); rc != 0) return rc;
        if (int rc = planBind(path, &sandbox); rc != 0) return rc;
    }
    if (!options.served.empty()) {
        for (const auto& file : webFiles(options.served, webHomeOf(sandbox.stateDir)))
            sandbox.files.push_back(file);
    }
    planProgram(options, plan);
    // The shell tells the processor: its place is known.
    const zem::Descriptor shell = openInRoot(sandbox.stateDir, "/.shell", O_RDONLY | O_NONBLOCK);
    const std::string opened = "/proc/self/fd/" + std::to_string(shell.get());
    char resolved[PATH_MAX];
    if (shell.isOpen() && isOfOtherProcessor(opened) && realpath(opened.c_str(), resolved) != nullptr)
        plan->namespaces.foreignProgram = resolved;
    if (int rc = planRoot(options, plan); rc != 0) return rc;
    if (int rc = planFolders(options, device, plan); rc != 0) return rc;
    return planFilter(options, plan);
}

}  // namespace rovusim
