#include "update_spec/image_selection.h"

#include "run/log_module.h"

#include <cassert>
#include <cstring>

namespace {

using Part = UpdateSpecVer1::Part;

// The images of the list: at most one of each kind.
struct Images {
    Part* kernelImage = nullptr;
    Part* rootfsImage = nullptr;
    unsigned int mandatoryCount = 0;
};

bool findImages(UpdateSpecVer1* spec, Images* images) {
    for (Part* part = firstPart(spec); part != nullptr; part = nextPart(spec, part)) {
        if (isScript(*part)) continue;
        if (isMandatory(*part)) ++images->mandatoryCount;
        Part*& slot = part->type == UpdateSpecVer1::eTypeKernel ? images->kernelImage : images->rootfsImage;
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

// The installed version that an image's list is tested against.
PackedVersion installedCounterpart(const Part& image, const InstalledVersions& installed) {
    return image.type == UpdateSpecVer1::eTypeKernel ? installed.installedRootfs : installed.installedKernel;
}

// `secondImage`, which may be null, becomes mandatory if only its version satisfies `firstImage`.
bool evaluateFirst(const Part& firstImage, Part* secondImage, PackedVersion installed) {
    if (secondImage == nullptr) return acceptsVersion(firstImage, installed);
    if (isMandatory(*secondImage)) return acceptsVersion(firstImage, secondImage->img.version);
    if (acceptsVersion(firstImage, installed)) return true;
    if (!acceptsVersion(firstImage, secondImage->img.version)) return false;
    secondImage->img.update = UpdateSpecVer1::eUpdateMandatory;
    return true;
}

// An image that is still optional is needed by nobody.
bool evaluateSecond(const Part& firstImage, Part* secondImage) {
    if (secondImage == nullptr) return true;
    if (isMandatory(*secondImage)) return acceptsVersion(*secondImage, firstImage.img.version);
    freePart(secondImage);
    return true;
}

// At least one image is mandatory, so the first one exists and is.
bool meetDependencies(const Images& images, const InstalledVersions& installed) {
    const bool rootfsFirst = images.rootfsImage != nullptr && isMandatory(*images.rootfsImage);
    Part* firstImage = rootfsFirst ? images.rootfsImage : images.kernelImage;
    Part* secondImage = rootfsFirst ? images.kernelImage : images.rootfsImage;
    assert(firstImage != nullptr && isMandatory(*firstImage));
    return evaluateFirst(*firstImage, secondImage, installedCounterpart(*firstImage, installed)) &&
           evaluateSecond(*firstImage, secondImage);
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
