// Whole files, for a program that cannot go on without them.
//
// Runs other programs.

#pragma once

#include <string>
#include <vector>

/// Reads all of a file. Throws std::runtime_error.
std::string readFileOrThrow(const std::string& path);

/// Replaces a file, with holes where `bytes` are zeros. Throws std::runtime_error.
void writeFileOrThrow(const std::string& path, const std::string& bytes);

/// Runs a program without a shell, its input empty, and what it prints in the file `output`.
/// \return its exit status; 128 and the number of the signal that ended it. Throws std::runtime_error if it cannot be
///         started.
int runProgram(const std::vector<std::string>& words, const std::string& output);
