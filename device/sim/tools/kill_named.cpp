#include "tools/kill_named.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <string>
#include <unistd.h>

namespace rovusim {
namespace {

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

}  // namespace

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

}  // namespace rovusim
