// The word that a mistyped one is nearest to.

#pragma once

#include <string>
#include <vector>

/// \return the word that `word` comes from with the fewest letters changed, added, dropped or swapped; the
///         first of several; empty if all are so far off that none is likely.
std::string nearestWord(const std::string& word, const std::vector<std::string>& words);
