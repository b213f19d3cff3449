// The line of each key and each entry of the table in a Lua file. Lua does not keep it; messages need
// it.

#pragma once

#include <map>
#include <string>

/// Lines, counted from 1, by path: "hardware", "3" for the third entry, "3.url", "3.dep.2". Also what
/// evaluates to nil is in it, so that a reader can tell a key that is missing from one whose value is.
using TableLines = std::map<std::string, int>;

/// Reads a table constructor without evaluating it. Keys that are computed, and tables that an expression
/// makes, are left out.
/// \param repeated receives the path of a key that is there twice, of which Lua silently takes the last;
///        empty if there is none.
TableLines findTableLines(const std::string& text, std::string* repeated);
