// Which images of a spec a device needs, given what it is and what it runs.

#pragma once

#include "spec.h"

struct InstalledVersions {
    PackedVersion kernel;
    PackedVersion rootfs;
};

/// Whether `model` is a token of the comma-separated `list`. Tokens are compared as they stand, blanks and
/// all; an empty model matches an empty token.
bool isModelListed(const char* list, const char* model);

/// Leaves in the list of `spec` the images that are to be installed: those not needed are released, and an
/// optional image that a mandatory one needs becomes mandatory. Scripts and the order of the list are not
/// touched.
/// \return true; false after logging: two images of a kind, or dependencies that are not met.
bool selectImages(UpdateSpecVer1* spec, const InstalledVersions& installed);

/// Whether `version` satisfies every entry of the list: lies within the range of a plain entry and outside
/// that of a negated one. An empty list is satisfied by every version.
bool checkDeps(uint32_t depCount, const UpdateSpecVer1::Dep* deps, PackedVersion version);
