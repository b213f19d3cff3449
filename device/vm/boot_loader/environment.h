// Reads a variable of the boot loader's environment out of the image of its flash, as U-Boot does: two
// redundant copies, the newer of those whose sum is right.

#pragma once

#include <string>

/// \return 0 with `*value` written; the errno value of the file's reading; EILSEQ if no copy is sound; ENOENT
///         if there is no such variable.
int readVariable(const std::string& path, const std::string& name, std::string* value);
