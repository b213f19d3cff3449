// What must hold for a manifest beyond the kinds of its fields.

#pragma once

#include "manifest.h"

/// \return 0, or EINVAL with a sentence in `*error` about the first fault.
int checkManifest(const Manifest& manifest, std::string* error);
