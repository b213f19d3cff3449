// Runs other programs.

#pragma once

#include <string>
#include <vector>

/// Runs a program without a shell, its input empty, and what it prints in the file `output`.
/// \return its exit status; 128 and the number of the signal that ended it. Throws std::runtime_error if it cannot be
///         started.
int runProgram(const std::vector<std::string>& words, const std::string& output);
