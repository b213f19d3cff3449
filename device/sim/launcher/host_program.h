// Programs of the host that the launcher needs.
#pragma once

#include <csignal>
#include <string>
#include <vector>

namespace rovusim {

/// Where the host's PATH, or else the system's folders, have a program; empty: nowhere.
[[nodiscard]] std::string findProgram(const std::string& name);

/// Runs a program of the host, which prints nothing unless it fails, and waits for it.
/// \return its exit status; another number if it did not start or did not exit.
[[nodiscard]] int runHostProgram(const std::vector<std::string>& words, const sigset_t& signalMask);

/// Becomes a program of the host; exits with 1 after a message if it does not start.
[[noreturn]] void becomeHostProgram(const std::vector<std::string>& words, const sigset_t& signalMask);

}  // namespace rovusim
