// Reads a variable of the boot loader's environment out of the image of its flash, as U-Boot does: two
// redundant copies, the newer of those whose checksum is right.

#pragma once

#include "disk.h"

#include <string>
#include <string_view>

/// \return 0 with `*value` written; EILSEQ if no copy is sound; ENOENT if there is no such variable.
int findVariable(std::string_view image, const std::string& name, std::string* value);

/// The same for an image that is a range of the file at `path`.
/// \return as findVariable(); or the errno value of the failure to read the file.
int readVariable(const std::string& path, const std::string& name, std::string* value,
                 const ByteRange& range = {});
