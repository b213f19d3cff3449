// The names and numbers of this host's system calls.
#pragma once

#include <string>

namespace rovusim {

/// \return whether there is a system call `name`; `number` is written only then.
[[nodiscard]] bool syscallNumber(const std::string& name, int* number);

/// The name, or the decimal number if this program was built without a name for it.
[[nodiscard]] std::string syscallName(int number);

}  // namespace rovusim
