// Whether a spec is for this device.

#pragma once

#include "spec.h"

/// Whether `spec` lists `model`; logs that it does not.
bool isModelSupported(const UpdateSpecVer1& spec, const char* model);

/// Whether a version was read; logs that it was not.
/// \param what "kernel" or "rootfs".
/// \param rc of the reading.
bool isReleaseKnown(const char* what, int rc);

/// Compares the device's model and installed versions with `spec`, and leaves in its list what is to be
/// carried out; see selectImages().
/// \return true; false after logging why the spec may not run here.
bool checkSpecForDevice(UpdateSpecVer1* spec);
