#include "tools/real_program.h"

#include "rovu_sim/sandbox_paths.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <string>
#include <sys/auxv.h>
#include <sys/wait.h>
#include <unistd.h>

namespace rovusim {
namespace {

std::string findReal(const std::string& name) {
    const std::string path = kRealPath;
    for (size_t start = 0; start < path.size();) {
        size_t end = path.find(':', start);
        if (end == std::string::npos) end = path.size();
        std::string candidate = path.substr(start, end - start) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0) return candidate;
        start = end + 1;
    }
    return "";
}

struct SignalName {
    const char* name;
    int number;
};
constexpr SignalName kSignals[] = {
    {"HUP", SIGHUP},   {"INT", SIGINT},   {"QUIT", SIGQUIT}, {"KILL", SIGKILL}, {"TERM", SIGTERM},
    {"USR1", SIGUSR1}, {"USR2", SIGUSR2}, {"STOP", SIGSTOP}, {"CONT", SIGCONT},
};

// Of "-9", "-KILL" or "-SIGKILL"; 0: another option.
int signalOf(const char* option) {
    const char* word = option + 1;
    if (*word >= '0' && *word <= '9') return atoi(word);
    if (strncmp(word, "SIG", 3) == 0) word += 3;
    for (const SignalName& signal : kSignals) {
        if (strcmp(word, signal.name) == 0) return signal.number;
    }
    return 0;
}

// The kernel keeps 15 characters of a name.
bool isNamed(const std::string& process, const char* name) {
    std::ifstream file("/proc/" + process + "/comm");
    std::string comm;
    std::getline(file, comm);
    const char* base = strrchr(name, '/');
    return !comm.empty() && comm == std::string(base == nullptr ? name : base + 1).substr(0, 15);
}

void kill(const char* name, int signal) {
    DIR* processes = opendir("/proc");
    if (processes == nullptr) return;
    for (const dirent* entry = readdir(processes); entry != nullptr; entry = readdir(processes)) {
        const pid_t process = atoi(entry->d_name);
        if (process > 1 && process != getpid() && isNamed(entry->d_name, name)) ::kill(process, signal);
    }
    closedir(processes);
}

std::string baseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// The path given to execve: for a script with an interpreter line, the script.
std::string executedFile() {
    const unsigned long address = getauxval(AT_EXECFN);
    return address == 0 ? "" : reinterpret_cast<const char*>(address);
}

}  // namespace

int becomeReal(const ToolCallInside& call) {
    const std::string program = call.tool == kShellTool ? kRealShellInside : findReal(call.tool);
    if (program.empty()) {
        fprintf(stderr, "sh: %s: not found\n", call.tool.c_str());
        return kExitNotFound;
    }
    execv(program.c_str(), call.argv);
    const int error = errno;
    fprintf(stderr, "%s: cannot run %s: %s\n", call.tool.c_str(), program.c_str(), strerror(error));
    return error == ENOENT ? kExitNotFound : kExitCannotRun;
}

void runReal(const ToolCallInside& call) {
    const pid_t child = fork();
    if (child < 0) return;
    if (child == 0) _exit(becomeReal(call));
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
}

void killNamed(const ToolCallInside& call) {
    int signal = SIGTERM;
    for (int i = 1; i < call.argc; ++i) {
        if (call.argv[i][0] != '-') {
            kill(call.argv[i], signal);
        } else if (int given = signalOf(call.argv[i]); given != 0) {
            signal = given;
        }
    }
}

bool isShellWithScript(int argc, char** argv) {
    if (baseName(argv[0]) != kShellTool || baseName(executedFile()) != kShellTool) return false;
    for (int i = 1; i < argc; ++i) {
        const char* word = argv[i];
        if (word[0] != '-' && word[0] != '+') return true;
        if (std::strcmp(word, "-") == 0 || std::strcmp(word, "--") == 0) return i + 1 < argc;
        // Any letter in a cluster such as -ec; -s reads standard input, and -o has a word of its own.
        if (word[0] == '-' && std::strpbrk(word, "cs") != nullptr) return false;
        if (std::strchr(word, 'o') != nullptr) ++i;
    }
    return false;
}

}  // namespace rovusim
