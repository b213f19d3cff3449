// The decision itself, apart from where model and versions come from.
//
// An image's list is always tested against a version of the other kind: a kernel's against a rootfs, a
// rootfs's against a kernel. No image is compared with what is installed of its own kind, so an image is
// never refused as a downgrade.

#include "image_selection.h"

#include "log_module.h"

#include <cassert>
#include <cstring>

namespace {

using Part = UpdateSpecVer1::Part;

// The images of the list: at most one of each kind.
struct Images {
    Part* kernel = nullptr;
    Part* rootfs = nullptr;
    unsigned int mandatoryCount = 0;
};

bool isMandatory(const Part& part) {
    return part.img.update == UpdateSpecVer1::eUpdateMandatory;
}

bool findImages(UpdateSpecVer1* spec, Images* images) {
    for (Part* part = firstPart(spec); part != nullptr; part = nextPart(spec, part)) {
        if (isScript(*part)) continue;
        if (isMandatory(*part)) ++images->mandatoryCount;
        Part*& slot = part->type == UpdateSpecVer1::eTypeKernel ? images->kernel : images->rootfs;
        if (slot != nullptr) {
            LOG_MSG(LOG_LVL_ERROR, "Multiple images of a kind.");
            return false;
        }
        slot = part;
    }
    return true;
}

void dropImages(UpdateSpecVer1* spec) {
    for (Part* part = firstPart(spec); part != nullptr;) {
        Part* next = nextPart(spec, part);
        if (!isScript(*part)) freePart(part);
        part = next;
    }
}

// The installed version that an image's list speaks of.
PackedVersion counterpartOf(const Part& part, const InstalledVersions& installed) {
    return part.type == UpdateSpecVer1::eTypeKernel ? installed.rootfs : installed.kernel;
}

bool accepts(const Part& part, PackedVersion version) {
    return checkDeps(part.img.depCount, part.img.deps, version);
}

// `second`, which may be null, becomes mandatory if only its version satisfies `first`.
bool evaluateFirst(const Part& first, Part* second, PackedVersion installed) {
    if (second == nullptr) return accepts(first, installed);
    if (isMandatory(*second)) return accepts(first, second->img.version);
    if (accepts(first, installed)) return true;
    if (!accepts(first, second->img.version)) return false;
    second->img.update = UpdateSpecVer1::eUpdateMandatory;
    return true;
}

// An image that is still optional is needed by nobody.
bool evaluateSecond(const Part& first, Part* second) {
    if (second == nullptr) return true;
    if (isMandatory(*second)) return accepts(*second, first.img.version);
    freePart(second);
    return true;
}

// At least one image is mandatory, so the first one exists and is.
bool meetDependencies(const Images& images, const InstalledVersions& installed) {
    const bool rootfsFirst = images.rootfs != nullptr && isMandatory(*images.rootfs);
    Part* first = rootfsFirst ? images.rootfs : images.kernel;
    Part* second = rootfsFirst ? images.kernel : images.rootfs;
    assert(first != nullptr && isMandatory(*first));
    return evaluateFirst(*first, second, counterpartOf(*first, installed)) && evaluateSecond(*first, second);
}

}  // namespace

bool isModelListed(const char* list, const char* model) {
    const size_t length = strlen(model);
    for (const char* token = list;;) {
        const char* end = strchrnul(token, ',');
        if (static_cast<size_t>(end - token) == length && memcmp(token, model, length) == 0) return true;
        if (*end == '\0') return false;
        token = end + 1;
    }
}

bool selectImages(UpdateSpecVer1* spec, const InstalledVersions& installed) {
    Images images;
    if (!findImages(spec, &images)) return false;
    if (images.mandatoryCount == 0) {
        LOG_MSG(LOG_LVL_INFO, "No image to update.");
        dropImages(spec);
        return true;
    }
    if (!meetDependencies(images, installed)) {
        LOG_MSG(LOG_LVL_ERROR, "Update dependencies not met.");
        return false;
    }
    return true;
}

bool checkDeps(uint32_t depCount, const UpdateSpecVer1::Dep* deps, PackedVersion version) {
    for (uint32_t i = 0; i < depCount; ++i) {
        const UpdateSpecVer1::Dep& dep = deps[i];
        const bool inRange = dep.min <= version && version <= dep.max;
        if (inRange == dep.negated) return false;
    }
    return true;
}
