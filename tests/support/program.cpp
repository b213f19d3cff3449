#include "support/program.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string makeDirectory() {
    std::filesystem::create_directories(ROVU_SCRATCH);
    std::string path = ROVU_SCRATCH "/XXXXXX";
    if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("no scratch directory " + path);
    return path;
}

}  // namespace

ScratchDir::ScratchDir() : path(makeDirectory()) {}

ScratchDir::~ScratchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

std::string readWholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void writeWholeFile(const std::string& path, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream file(path, std::ios::binary);
    file << bytes << std::flush;
    if (!file) throw std::runtime_error("cannot write " + path);
}

namespace {

// The programs of the build are found by their names: a command line need not quote a path.
const int kPathIsSet = setenv("PATH", (ROVU_BUILD_DIRECTORY ":" + std::string(getenv("PATH"))).c_str(), 1);

std::vector<char*> wordsOf(Strings* command) {
    std::vector<char*> words;
    for (std::string& word : *command)
        words.push_back(word.data());
    words.push_back(nullptr);
    return words;
}

int append(const char* file) {
    return open(file, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
}

// fork() would copy the page tables: with the sanitizer's memory, that takes longer than most of the programs.
pid_t start(char** words, const char* outFile, const char* errFile) {
    const pid_t pid = vfork();
    if (pid != 0) return pid;
    prctl(PR_SET_PDEATHSIG, SIGTERM);  // a test that dies leaves no program running
    if (dup2(append(outFile), STDOUT_FILENO) >= 0 && dup2(append(errFile), STDERR_FILENO) >= 0)
        execvp(words[0], words);
    _exit(127);
}

}  // namespace

Program::Program(Strings command, const std::string& outFile, const std::string& errFile)
    : pid_(start(wordsOf(&command).data(), outFile.c_str(), errFile.c_str())) {}

Program::~Program() {
    if (ended_) return;
    signal(SIGKILL);
    wait();
}

bool Program::isRunning() const {
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

int Program::wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    ended_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}
