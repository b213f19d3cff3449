// Whole small files as strings, and replacing them in one step.
#pragma once

#include <string>
#include <vector>

namespace rovusim {

/// Reads the whole file. `text` is written on success only.
/// \return 0, or the positive errno value of the open or read that failed.
int readTextFile(const std::string& path, std::string* text);

/// Replaces the file by way of a temporary neighbour and a rename, so that no reader ever sees a part.
/// \return 0 or a positive errno value; on failure the old file stands as it was.
int replaceTextFile(const std::string& path, const std::string& text);

/// Writes all of `text` to the descriptor.
/// \return 0 or a positive errno value.
int writeFully(int fd, const char* bytes, size_t size);

/// The lines of `text` without their newlines; a last line without one counts too.
std::vector<std::string> splitLines(const std::string& text);

/// Makes the directory and those above it, as far as they are missing.
/// \return 0 or a positive errno value.
int makeDirectories(const std::string& path);

}  // namespace rovusim
