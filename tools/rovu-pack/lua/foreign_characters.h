// Characters that word processors, web pages and editors put into a Lua text, and that Lua does not understand.

#pragma once

#include <string>

/// Why Lua refused a text, if such a character is the cause.
/// \param message Lua's own, which begins with the chunk's name and the line, and ends in the byte that it stopped at.
/// \return one sentence without its full stop, with what to do; empty for another cause.
std::string foreignCharacter(const std::string& text, const std::string& message);

/// \return the line that Lua's message names; 0 if there is none.
int lineInLuaMessage(const std::string& message);
