// What the launcher says on standard error.
#pragma once

#include <string>

namespace rovusim {

/// One line, with the program's name before it.
void complain(const std::string& text);

/// Complains "cannot WHAT PATH: reason" and gives the error back, for a return statement.
int cannot(const std::string& what, const std::string& path, int error);

}  // namespace rovusim
