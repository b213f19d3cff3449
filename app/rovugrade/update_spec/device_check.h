// Whether a spec is for this device.

#pragma once

#include "update_spec/spec.h"

// The three tests apart from where their values come from, for tools that ask what a device will say. Each logs why
// it failed.

/// Whether `spec` lists `model`.
[[nodiscard]] bool isModelSupported(const UpdateSpecVer1& spec, const char* model);

/// Whether the version of the running kernel could be read: `rc` is the result of getKernelVersion().
[[nodiscard]] bool isKernelReleaseKnown(int rc);

/// Whether the version of the root file system could be read: `rc` is the result of getRootfsVersion().
[[nodiscard]] bool isRootfsReleaseKnown(int rc);

/// Compares the device's model and installed versions with `spec`, and leaves in its list what is to be
/// carried out; see selectImages().
/// \return true; false after logging why the spec may not run here.
[[nodiscard]] bool checkSpecForDevice(UpdateSpecVer1* spec);
