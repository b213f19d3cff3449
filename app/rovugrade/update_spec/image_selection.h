// Selects the images of a spec that a device needs, by its model and installed versions.
//
// An image's list is always tested against a version of the other kind: a kernel's against a rootfs, a rootfs's
// against a kernel. No image is compared with what is installed of its own kind, so an image is never refused as a
// downgrade.

#pragma once

#include "update_spec/spec.h"

struct InstalledVersions {
    PackedVersion installedKernel;  // the running one
    PackedVersion installedRootfs;
};

/// Whether `model` is a token of the comma-separated `list`. Tokens are compared verbatim, whitespace included; an
/// empty model matches an empty token.
[[nodiscard]] bool isModelListed(const char* list, const char* model);

/// Leaves in the list of `spec` the images that are to be installed: those not needed are released, and an
/// optional image that a mandatory one needs becomes mandatory. Scripts and the order of the list are not
/// touched.
/// \return true; false after logging: two images of a kind, or dependencies that are not met.
[[nodiscard]] bool selectImages(UpdateSpecVer1* spec, const InstalledVersions& installed);

/// Whether `version` satisfies every entry of the list: lies within the range of a plain entry and outside
/// that of a negated one. An empty list is satisfied by every version.
[[nodiscard]] bool checkDeps(uint32_t depCount, const UpdateSpecVer1::Dep* deps, PackedVersion version);

/// Whether `version`, of the other kind, satisfies the list of `image`.
inline bool acceptsVersion(const UpdateSpecVer1::Part& image, PackedVersion version) {
    return checkDeps(image.img.depCount, image.img.deps, version);
}
