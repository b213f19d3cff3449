// Makes untrusted strings safe for a terminal: a spec, a manifest, a tar or a log may have what moves the cursor, or
// a line that looks like one of this program.

#pragma once

#include <string>

/// \return the string on one line: control characters (C0, DEL, C1) and bytes that are no UTF-8 are visible, as \n and
///         \x1b. A backslash stays as it is.
std::string printable(const std::string& text);

/// The same for each line of a text.
std::string printableLines(const std::string& text);
