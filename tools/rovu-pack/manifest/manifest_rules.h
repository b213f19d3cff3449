// Faults that can be told from the manifest alone, each where its author can find it. The device's own
// reader has the last word, but knows no lines.

#pragma once

#include "manifest.h"

/// What must hold for a manifest beyond the kinds of its fields.
/// \return the first fault.
Fault checkManifest(const Manifest& manifest);
