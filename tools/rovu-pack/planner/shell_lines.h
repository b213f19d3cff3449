// The shell lines in which names of a spec stand, exactly as the device forms them.

#pragma once

#include <string>

/// Most characters of a line that the device runs.
constexpr size_t kLongestLine = 255;

/// A file of the device's work directory.
std::string workPath(const std::string& name);

std::string extractLine(const std::string& tar, const std::string& member);
std::string scriptLine(const std::string& name);
std::string digestLine(const std::string& name);

/// \param id the volume's number, or a word in its place.
std::string flashLine(const std::string& id, const std::string& name);
