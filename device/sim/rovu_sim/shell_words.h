// Quotes words for a shell, and splits a line of quoted words.
#pragma once

#include <string>
#include <vector>

namespace rovusim {

/// The word for use in a shell line: bare where that is safe, else between quotes. A word with control
/// characters takes the $'...' form, so the result never spans lines.
std::string quoteForShell(const std::string& word);

/// The inverse, for a line of such words separated by single spaces.
std::vector<std::string> splitShellWords(const std::string& line);

}  // namespace rovusim
