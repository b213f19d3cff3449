// Files of a test's own.
//
// Programs of the host that a test starts, by their process numbers.

#pragma once

#include <csignal>
#include <string>
#include <vector>

/// A directory below the build directory, removed with all that is in it at the end of the scope.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    const std::string path;
};

/// All bytes of the file; a file that is not there reads as empty.
std::string readWholeFile(const std::string& path);

/// Replaces the file, and makes the directories above it. Throws if that fails.
void writeWholeFile(const std::string& path, const std::string& bytes);

using Strings = std::vector<std::string>;

/// A child process. It is killed at the end of the scope if it still runs.
class Program {
public:
    /// Starts it. The first word is looked up in PATH; status 127 tells that it was not found. Its
    /// output is appended to two files.
    explicit Program(Strings command, const std::string& outFile = "/dev/null",
                     const std::string& errFile = "/dev/null");
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t pid() const { return pid_; }
    void signal(int number) const { kill(pid_, number); }

    bool isRunning() const;

    /// Waits for its end. \return the exit status, or the negated number of the signal that ended it.
    int wait();

private:
    const pid_t pid_;
    bool ended_ = false;
};
