// Folders that a killed run left behind.

#pragma once

#include "util/descriptor.h"

#include <string>

/// Removes the folders in `parent` whose names begin with `prefix`, which belong to this user, and which nobody has locked.
/// Follows no links.
void removeLeftovers(const std::string& parent, const std::string& prefix);

/// Makes and locks a folder that only its owner can enter, PARENT/PREFIXxxxxxx. It is no leftover as long as `lock` is open.
/// \return 0, or an errno value.
[[nodiscard]] int makeLockedFolder(const std::string& parent, const std::string& prefix,
                                   zem::Descriptor* lock, std::string* path);
