// Words as a shell would read them: quoting for print and for commands, and the way back.
#pragma once

#include <string>
#include <vector>

namespace rovusim {

/// The word as it can be pasted into a shell line: bare where that is safe, else between quotes.
/// A word with control characters comes out in the $'...' form, so the result never spans lines.
std::string quoteForShell(const std::string& word);

/// The inverse for lines of such words with single blanks between them.
std::vector<std::string> splitShellWords(const std::string& line);

}  // namespace rovusim
