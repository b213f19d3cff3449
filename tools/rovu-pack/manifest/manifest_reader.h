// From a manifest's file to its record: evaluated, taken field by field, and checked.

#pragma once

#include "manifest.h"

/// Reads and checks the manifest at `path`.
/// \return EINVAL for a fault in it.
Fault readManifest(const std::string& path, Manifest* manifest);
