// Whole files, for a program that cannot go on without them.

#pragma once

#include <string>

/// Reads all of a file. Throws std::runtime_error.
std::string readFileOrThrow(const std::string& path);

/// Replaces a file, with holes where `bytes` are zeros. Throws std::runtime_error.
void writeFileOrThrow(const std::string& path, const std::string& bytes);
