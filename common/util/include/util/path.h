// Joining paths.

#pragma once

#include <cstddef>
#include <string>

/// Appends one '/' and `name` to `path`, whatever either of them holds: "a/" and "b" give "a//b", and ""
/// and "b" give "/b". Nothing is normalised. The string grows once.
/// \return `path`.
std::string& appendPath(std::string& path, const std::string& name);

/// The same, with the name as `length` characters at `name`.
std::string& appendPath(std::string& path, const char* name, size_t length);
