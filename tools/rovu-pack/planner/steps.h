// The shell lines in which names of a spec stand, exactly as the device forms them: one function for each
// of its formats.

#pragma once

#include <string>
#include <vector>

/// Most characters of a line that the device runs.
constexpr size_t kLongestLine = 255;

/// A file of the device's work directory.
std::string workPath(const std::string& name);

std::string extractLine(const std::string& tar, const std::string& member);
std::string scriptLine(const std::string& name);
std::string digestLine(const std::string& name);

/// \param id the volume's number, or a placeholder.
std::string flashLine(const std::string& id, const std::string& name);

/// The words that a shell makes of one of the device's lines, without redirections. Braces hold a word
/// together.
std::vector<std::string> wordsOfLine(const std::string& line);
