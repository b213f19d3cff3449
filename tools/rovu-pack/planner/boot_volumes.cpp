// What the set that boots after an update holds. What the update does not write there is neither what the device
// runs nor what the update was tested with, but what an earlier update left.

#include "image_selection.h"
#include "plan.h"
#include "util/installed_version.h"

#include <algorithm>

namespace {

using Part = UpdateSpecVer1::Part;

const Part* imageOf(const Selection& selection, const std::string& kind) {
    const uint32_t type = kind == "kernel" ? UpdateSpecVer1::eTypeKernel : UpdateSpecVer1::eTypeRootfs;
    UpdateSpecVer1* spec = selection.record.get();
    for (Part* part = firstPart(spec); part != nullptr; part = nextPart(spec, part)) {
        if (part->type == type) return part;
    }
    return nullptr;
}

std::string versionOf(const SpecView& spec, const Part& image) {
    for (const ImageView& view : spec.images) {
        if (view.localName == image.img.localName) return view.text("version");
    }
    return "";
}

bool isVersion(const BootVolume& volume, PackedVersion* version) {
    std::string text = volume.version;
    return (volume.kind == "kernel" ? parseKernelRelease(version, text.data())
                                    : parseVersion(version, text.c_str())) == 0;
}

// Whether the update brings the one, and its dependencies refuse the other.
bool refuses(const Selection& selection, const BootVolume& own, const BootVolume& other) {
    PackedVersion version = 0;
    const Part* image = imageOf(selection, own.kind);
    return own.content == BootVolume::eNew && image != nullptr && isVersion(other, &version) &&
           !acceptsVersion(*image, version);
}

}  // namespace

const char* contentText(BootVolume::Content content) {
    constexpr const char* kTexts[] = {"new", "copied", "earlier"};
    return kTexts[content];
}

std::vector<BootVolume> bootVolumes(const SpecView& spec, const Selection& selection,
                                    const InactiveSet& inactive, const Plan& plan) {
    if (!plan.switches) return {};
    const std::string set = "k" + std::to_string(plan.activeSet ^ 1);
    std::vector<BootVolume> boots = {{set, "kernel", BootVolume::eEarlier, inactive.kernel, ""},
                                     {set + "_root", "rootfs", BootVolume::eEarlier, inactive.rootfs, ""},
                                     {set + "_data", "data", BootVolume::eEarlier,
                                      inactive.data == kMissing ? kBlank : inactive.data, ""}};
    for (BootVolume& volume : boots) {
        if (std::count(plan.volumes.begin(), plan.volumes.end(), volume.volume) == 0) continue;
        const Part* image = volume.kind == "data" ? nullptr : imageOf(selection, volume.kind);
        volume.content = image == nullptr ? BootVolume::eCopied : BootVolume::eNew;
        volume.version = image == nullptr ? "" : versionOf(spec, *image);
    }
    if (refuses(selection, boots[1], boots[0])) boots[0].refusedBy = boots[1].kind;
    if (refuses(selection, boots[0], boots[1])) boots[1].refusedBy = boots[0].kind;
    return boots;
}
