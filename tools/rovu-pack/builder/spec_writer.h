// The text of a spec, for two readers, a device and a person: one key a line, in the order of the manual.

#pragma once

#include "manifest.h"

#include <string>

/// Composes the spec's text, up to and including its last line feed. All that can be computed must be there,
/// except what belongs to a script tar if no step is a script. The same manifest gives the same text.
std::string composeSpec(const Manifest& manifest);

/// \return `text` as a Lua string, in quotes, on one line.
std::string luaQuoted(const std::string& text);
