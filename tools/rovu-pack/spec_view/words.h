// What a mistyped text was meant to be: the nearest word, and characters that word processors, web pages and editors put
// into a Lua text, and that Lua does not understand.

#pragma once

#include <string>
#include <vector>

/// \return the word that `word` comes from with the fewest letters changed, added, dropped or swapped; the
///         first of several; empty if all are so far off that none is likely.
std::string nearestWord(const std::string& word, const std::vector<std::string>& words);

/// Why Lua refused a text, if such a character is the cause.
/// \param message Lua's own, which begins with the chunk's name and the line, and ends in the byte that it stopped at.
/// \return one sentence without its full stop, with what to do; empty for another cause.
std::string foreignCharacter(const std::string& text, const std::string& message);

/// \return the line that Lua's message names; 0 if there is none.
int lineInLuaMessage(const std::string& message);
