// Whether a spec is for this device.

#pragma once

#include "spec.h"

/// Compares the device's model and installed versions with `spec`, and leaves in its list what is to be
/// carried out; see selectImages().
/// \return true; false after logging why the spec may not run here.
bool checkSpecForDevice(UpdateSpecVer1* spec);
