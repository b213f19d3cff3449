// What the set that boots after an update holds. A volume that the update does not write is neither what the device
// runs nor what the update was tested with, but what an earlier update left.
//
// The choice of images on one kind of device. The device's own code decides; the words for its tests are
// found here, before it changes the list.

#include "planner/plan.h"
#include "spec_view/device_verdict.h"
#include "update_spec/device_check.h"
#include "update_spec/image_selection.h"
#include "util/file.h"
#include "util/installed_version.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

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

// Whether the update brings the one, and its dependencies refuse the other.
bool refuses(const Selection& selection, const BootVolume& own, const BootVolume& other) {
    PackedVersion version = 0;
    const Part* image = imageOf(selection, own.kind);
    return own.content == BootVolume::eNew && image != nullptr &&
           readInstalled(other.kind, other.version, &version) && !acceptsVersion(*image, version);
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
    const auto content = [](const std::string& word) { return word == kMissing ? kBlank : word; };
    std::vector<BootVolume> boots = {
        {set, "kernel", BootVolume::eEarlier, content(inactive.kernel), ""},
        {set + "_root", "rootfs", BootVolume::eEarlier, content(inactive.rootfs), ""},
        {set + "_data", "data", BootVolume::eEarlier, content(inactive.data), ""}};
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

namespace {

using Part = UpdateSpecVer1::Part;

constexpr size_t kVersionTextSize = 32;

// Most bytes of an answer of the device's platform script that the device reads, line feed included.
constexpr size_t kMostOfRootfs = 62;

// What the device logs of a longer model: what it read, the script's exit status, and that it saw no end.
constexpr char kModelNotRead[] = "Failed to read model number (31, 0, 0)";

std::string versionText(PackedVersion version) {
    char text[kVersionTextSize];
    return formatVersion(version, text, sizeof text);
}

const char* kindOf(const Part& part) {
    return part.type == UpdateSpecVer1::eTypeKernel ? "kernel" : "rootfs";
}

const char* counterpartOf(const Part& part) {
    return part.type == UpdateSpecVer1::eTypeKernel ? "rootfs" : "kernel";
}

struct TestedVersion {
    const char* whose;  // "installed" or "new"
    PackedVersion version;
};

// "its dependencies accept the installed kernel 3.10.49.2"
std::string testOf(const Part& part, const TestedVersion& tested) {
    const bool good = acceptsVersion(part, tested.version);
    return std::string("its dependencies ") + (good ? "accept" : "refuse") + " the " + tested.whose + " " +
           counterpartOf(part) + " " + versionText(tested.version);
}

std::string testOfFirst(const Part& first, const Part* second, PackedVersion installed) {
    const TestedVersion old = {"installed", installed};
    if (second == nullptr) return testOf(first, old);
    const TestedVersion fresh = {"new", second->img.version};
    if (isMandatory(*second)) return testOf(first, fresh);
    if (acceptsVersion(first, installed)) return testOf(first, old);
    return testOf(first, old) + " and " + (acceptsVersion(first, fresh.version) ? "accept" : "refuse") +
           " the new " + versionText(fresh.version);
}

std::string testOfSecond(const Part& first, const Part& second, PackedVersion installed) {
    std::string own = testOf(second, {"new", first.img.version});
    if (isMandatory(second)) return own;
    const std::string need = std::string("the ") + kindOf(first) + " image ";
    if (acceptsVersion(first, installed)) return need + "does without it";
    if (!acceptsVersion(first, second.img.version)) return need + "is not helped by it";
    return need + "needs it, and " + own;
}

struct Chooser {
    const InstalledVersions& installed;
    UpdateSpecVer1* spec;
    std::vector<ImageChoice>* choices;
    std::vector<Part*> images;

    void note(const Part& part, const std::string& test) {
        choices->push_back({kindOf(part), part.img.localName,
                            isMandatory(part) ? ImageChoice::eKept : ImageChoice::ePromoted, test});
    }

    void describe() {
        for (Part* part = firstPart(spec); part != nullptr; part = nextPart(spec, part)) {
            if (!isScript(*part)) images.push_back(part);
        }
        const bool anyMandatory =
            std::any_of(images.begin(), images.end(), [](const Part* part) { return isMandatory(*part); });
        const bool pair = images.size() == 2 && images[0]->type != images[1]->type;
        for (Part* part : images) {
            const Part* other = !pair ? nullptr : images[part == images[0] ? 1 : 0];
            if (!anyMandatory) {
                note(*part, "no image is mandatory");
            } else if (images.size() > 1 && !pair) {
                note(*part, "there is another image of its kind");
            } else if (isTestedFirst(*part, other)) {
                note(*part, testOfFirst(*part, other, installedFor(*part)));
            } else {
                note(*part, testOfSecond(*other, *part, installedFor(*other)));
            }
        }
    }

    PackedVersion installedFor(const Part& part) const {
        return part.type == UpdateSpecVer1::eTypeKernel ? installed.installedRootfs
                                                        : installed.installedKernel;
    }

    // The rootfs goes first if it is mandatory, else the kernel.
    static bool isTestedFirst(const Part& part, const Part* other) {
        if (other == nullptr) return true;
        if (part.type == UpdateSpecVer1::eTypeRootfs) return isMandatory(part);
        return !isMandatory(*other);
    }
};

void noteOutcomes(UpdateSpecVer1* spec, bool accepted, std::vector<ImageChoice>* choices) {
    for (ImageChoice& choice : *choices) {
        bool left = false;
        for (Part* part = firstPart(spec); part != nullptr; part = nextPart(spec, part))
            left = left || (!isScript(*part) && choice.localName == part->img.localName);
        if (!left) choice.outcome = ImageChoice::eDropped;
        if (!accepted) choice.outcome = ImageChoice::eRefused;
    }
}

// The script ends its answer with a line feed, which counts; the device then removes whitespace from the end.
bool readAnswer(std::string* text, size_t most) {
    const bool isWhole = text->size() + 1 <= most;
    trimTrailingSpace(text->data());
    text->resize(strlen(text->c_str()));
    return isWhole;
}

int readRootfs(std::string text, PackedVersion* version) {
    return readAnswer(&text, kMostOfRootfs) ? parseVersion(version, text.c_str()) : EOVERFLOW;
}

// The rule for versions, and the field that violates it. `separators` stand for dots.
std::string versionFault(const std::string& text, const std::string& separators) {
    const size_t end = std::min(text.find_first_not_of("0123456789." + separators), text.size());
    const size_t start = text.find_last_of("." + separators, end == 0 ? 0 : end - 1);
    std::string part = text.substr(start == std::string::npos || end == 0 ? 0 : start + 1);
    part = part.substr(0, part.find_first_of("." + separators));
    return "A version is up to four numbers with dots" +
           std::string(separators.empty() ? "" : " or hyphens") + " between them, and \"" + part +
           "\" is no number.";
}

// Whether the device takes the spec; its choice is left there.
bool decide(const DeviceKind& device, Selection* selection) {
    InstalledVersions installed = {};
    UpdateSpecVer1* spec = selection->record.get();
    std::string model = device.model;
    if (!readAnswer(&model, kMostOfModel)) {
        selection->refusal = kModelNotRead;
        return false;
    }
    selection->refusedKey = "hardware";
    selection->advice =
        "Omit the kind if it is not to get the update; add its model only if the images are made for it.";
    if (!isModelSupported(*spec, model.c_str())) return false;
    selection->refusedKey.clear();
    std::string release = device.kernel;
    selection->reason = versionFault(device.kernel, "-");
    selection->advice =
        "Give the release as \"uname -r\" prints it; if it is that one, the device refuses every update.";
    if (!isKernelReleaseKnown(parseKernelRelease(&installed.installedKernel, release.data()))) return false;
    selection->readsRootfs = true;
    selection->reason = versionFault(device.rootfs, "");
    selection->advice =
        "Give the version as \"readplatform.sh rootfsrev\" prints it; if it is that one, the device refuses every update.";
    if (!isRootfsReleaseKnown(readRootfs(device.rootfs, &installed.installedRootfs))) return false;
    selection->reason.clear();
    selection->advice.clear();

    Chooser chooser = {installed, spec, &selection->images, {}};
    chooser.describe();
    const bool accepted = selectImages(spec, installed);
    noteOutcomes(spec, accepted, &selection->images);
    for (const ImageChoice& choice : selection->images) {
        if (accepted || choice.test.find(" refuse ") == std::string::npos) continue;
        selection->reason = "The " + choice.kind + " image: " + choice.test + ".";
        selection->refusedKey = choice.kind;
        selection->advice =
            "First install a version that the list accepts; widen the list only for a pair that was tested.";
        break;
    }
    return accepted;
}

}  // namespace

const char* outcomeText(ImageChoice::Outcome outcome) {
    constexpr const char* kTexts[] = {"kept", "dropped", "promoted", "refused"};
    return kTexts[outcome];
}

const char* outcomeInWords(ImageChoice::Outcome outcome) {
    constexpr const char* kTexts[] = {"installed", "not installed", "installed", "refused"};
    return kTexts[outcome];
}

Selection selectOn(const SpecFile& spec, UpdateState refusedIn, const DeviceKind& device) {
    Selection selection;
    selection.refusedIn = refusedIn;
    if (refusedIn == eStateInvalid) selection.record = readRecord(spec);
    if (selection.record == nullptr) {
        selection.refusal = "the spec itself is refused";
        return selection;
    }
    DeviceLog log;
    if (decide(device, &selection)) return selection;
    if (selection.refusal.empty()) selection.refusal = log.takeText();
    selection.refusedIn = eStateCheckingDependencies;
    return selection;
}
