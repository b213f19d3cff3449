// The set that boots, where the update does not write all of it. What the device runs does not go with the switch:
// a volume that is not written holds what an earlier update left there.

#include "device_log.h"
#include "rules.h"

#include <algorithm>

namespace {

using Part = UpdateSpecVer1::Part;

struct Images {
    const Part* kernel = nullptr;
    const Part* rootfs = nullptr;
    bool switches = true;  // the device accepts the list, flashes an image and boots the other set
};

Images imagesOf(UpdateSpecVer1* record) {
    Images images;
    bool anyMandatory = false;
    for (const Part* part = firstPart(record); part != nullptr;
         part = nextPart(record, const_cast<Part*>(part))) {
        if (isScript(*part)) {
            if (endsRun(*part)) images.switches = false;
            continue;
        }
        const Part*& slot = part->type == UpdateSpecVer1::eTypeKernel ? images.kernel : images.rootfs;
        if (slot != nullptr) images.switches = false;
        slot = part;
        anyMandatory = anyMandatory || isMandatory(*part);
    }
    images.switches = images.switches && anyMandatory;
    return images;
}

struct BootSetRule {
    const SpecView& spec;
    Findings* findings;

    // `other` is null if the spec has no such image.
    void checkImage(const std::string& kind, const Part* image, const std::string& otherKind,
                    const Part* other) const {
        if (image != nullptr && isMandatory(*image)) return;
        const std::string boots =
            "the new set boots with the " + kind + " that an earlier update left there, not the running one.";
        if (image == nullptr) {
            findings->add(eStaleVolume, spec.at(""), "Without a " + kind + " image, " + boots);
        } else if (other->img.depCount == 0) {
            findings->add(eStaleVolume, updateOf(*image),
                          "This image is never flashed, since the " + otherKind + " image needs no " + kind +
                              ": " + boots);
        } else {
            findings->add(eStaleVolume, updateOf(*image),
                          "Where the " + otherKind + " image accepts the running " + kind +
                              ", this image is not flashed: " + boots);
        }
    }

    FindingPlace updateOf(const Part& image) const {
        const auto view =
            std::find_if(spec.images.begin(), spec.images.end(), [&image](const ImageView& candidate) {
                return candidate.localName == image.img.localName;
            });
        return spec.at(view == spec.images.end() ? "" : view->key("update"));
    }
};

}  // namespace

Findings checkBootSet(const SpecView& spec) {
    Findings findings;
    const DeviceLog silenced;
    const SpecRecord record = readRecord(spec.file);
    if (record == nullptr || spec.hidesParts()) return findings;
    const Images images = imagesOf(record.get());
    if (!images.switches) return findings;
    const BootSetRule rule = {spec, &findings};
    rule.checkImage("kernel", images.kernel, "rootfs", images.rootfs);
    rule.checkImage("rootfs", images.rootfs, "kernel", images.kernel);
    if (!record->clone_overlay) {
        findings.add(
            eStaleData, spec.at("clone_overlay"),
            "The overlay is not cloned: the new set boots with the data that an earlier update left there.");
    }
    return findings;
}
