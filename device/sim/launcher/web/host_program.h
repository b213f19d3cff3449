// Programs of the host that the launcher needs inside a device, and that are no part of it.
#pragma once

#include <csignal>
#include <string>
#include <vector>

namespace rovusim {

/// Runs a program of the host, which prints nothing unless it fails, and waits for it.
/// \return its exit status; another number if it did not start or did not exit.
[[nodiscard]] int runHostProgram(const std::vector<std::string>& words, const sigset_t& signalMask);

}  // namespace rovusim
