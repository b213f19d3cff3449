#include "launcher/host_program.h"

#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/text_files.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace rovusim {

std::string findProgram(const std::string& name) {
    const char* list = getenv("PATH");
    std::istringstream folders(std::string(list == nullptr ? "" : list) + ":" + kRealPath);
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::string path = folder;
        path += "/" + name;
        if (!folder.empty() && access(path.c_str(), X_OK) == 0) return path;
    }
    return "";
}

bool readOutput(const std::string& command, std::string* output) {
    FILE* stream = popen((command + " 2>/dev/null").c_str(), "r");
    if (stream == nullptr) return false;
    char part[4096];
    for (size_t got = fread(part, 1, sizeof part, stream); got > 0; got = fread(part, 1, sizeof part, stream))
        output->append(part, got);
    return pclose(stream) == 0;
}

void becomeHostProgram(const std::vector<std::string>& words, const sigset_t& signalMask) {
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    sigprocmask(SIG_SETMASK, &signalMask, nullptr);
    setenv("PATH", kRealPath, 1);
    execvp(argv[0], argv.data());
    cannot("run", words.front(), errno);
    _exit(1);
}

int runHostProgram(const std::vector<std::string>& words, const sigset_t& signalMask) {
    const pid_t child = fork();
    if (child < 0) return cannot("start", words.front(), errno);
    if (child == 0) becomeHostProgram(words, signalMask);
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

void complain(const std::string& text) {
    // One write for the whole line: the command may be writing to the same terminal.
    const std::string line = "rovu-sim: " + text + "\n";
    writeFully(2, line.data(), line.size());
}

int cannot(const std::string& what, const std::string& path, int error) {
    complain("cannot " + what + " " + path + ": " + strerror(error));
    return error;
}

}  // namespace rovusim
