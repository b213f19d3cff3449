// From a manifest's file to its record: evaluated, taken field by field, and checked.

#pragma once

#include "manifest.h"

#include <string>
#include <vector>

/// Reads and checks the manifest at `path`.
/// \param variables "NAME=VALUE" for each field of the table `vars` that the manifest reads.
/// \return EINVAL for a fault in it, or in the variables: one that is missing, and one that is not read.
Fault readManifest(const std::string& path, const std::vector<std::string>& variables, Manifest* manifest);
