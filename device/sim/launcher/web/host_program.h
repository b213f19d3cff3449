// Programs of the host that the launcher needs.
#pragma once

#include <csignal>
#include <string>
#include <vector>

namespace rovusim {

/// Runs a program of the host, which prints nothing unless it fails, and waits for it.
/// \return its exit status; another number if it did not start or did not exit.
[[nodiscard]] int runHostProgram(const std::vector<std::string>& words, const sigset_t& signalMask);

/// Becomes a program of the host; exits with 1 if it does not start.
[[noreturn]] void becomeHostProgram(const std::vector<std::string>& words, const sigset_t& signalMask);

}  // namespace rovusim
