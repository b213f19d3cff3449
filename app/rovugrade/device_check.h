// Whether a spec is for this device, and which of its images the device needs.

#pragma once

#include "spec.h"

/// Compares the device's model and installed versions with `spec`, and leaves in its list what is to be
/// carried out: images that are not needed are released, and an optional image that a mandatory one needs
/// becomes mandatory. Scripts and the order of the list are not touched.
/// \return true; false after logging why the spec may not run here.
bool checkSpecForDevice(UpdateSpecVer1* spec);

/// Whether `version` satisfies every entry of the list: lies within the range of a plain entry and outside
/// that of a negated one. An empty list is satisfied by every version.
bool checkDeps(uint32_t depCount, const UpdateSpecVer1::Dep* deps, PackedVersion version);
