// The launcher's messages on standard error.
#pragma once

#include <string>

namespace rovusim {

/// Prints one line that starts with the program's name.
void complain(const std::string& text);

/// Prints "cannot WHAT PATH: reason".
/// \param error a positive errno value
/// \return `error`, for a return statement.
int cannot(const std::string& what, const std::string& path, int error);

}  // namespace rovusim
