// Versions in names of files and folders.

#pragma once

#include <string>
#include <vector>

/// The first version in `name`, as "2.4.0" in "rootfs-2.4.0.img", that is of the numbering of one of `versions`, by its
/// first field, and is none of them; empty: there is none.
std::string otherVersion(const std::string& name, const std::vector<std::string>& versions);
