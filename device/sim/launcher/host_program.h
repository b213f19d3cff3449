// The launcher's messages on standard error, and the programs of the host that it needs.
#pragma once

#include <csignal>
#include <string>
#include <vector>

namespace rovusim {

/// Where the host's PATH, or else the system's folders, have a program; empty: nowhere.
[[nodiscard]] std::string findProgram(const std::string& name);

/// What a command of the host's shell prints, with nothing of its errors.
/// \return whether it succeeded.
[[nodiscard]] bool readOutput(const std::string& command, std::string* output);

/// Runs a program of the host, which prints nothing unless it fails, and waits for it.
/// \return its exit status; another number if it did not start or did not exit.
[[nodiscard]] int runHostProgram(const std::vector<std::string>& words, const sigset_t& signalMask);

/// Executes a program of the host in place of this one; exits with 1 after a message if that fails.
[[noreturn]] void becomeHostProgram(const std::vector<std::string>& words, const sigset_t& signalMask);

/// Prints one line that starts with the program's name.
void complain(const std::string& text);

/// Prints "cannot WHAT PATH: reason".
/// \param error a positive errno value
/// \return `error`, for a return statement.
int cannot(const std::string& what, const std::string& path, int error);

}  // namespace rovusim
