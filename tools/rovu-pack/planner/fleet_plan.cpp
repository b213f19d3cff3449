#include "planner/fleet_plan.h"

#include "install/install.h"
#include "run/settings.h"
#include "spec_view/device_verdict.h"

#include <algorithm>
#include <optional>
#include <sstream>

namespace {

std::string nameOf(const DeviceKind& device) {
    return "The device " + device.model + " with kernel " + device.kernel + " and rootfs " + device.rootfs;
}

// Where the image of that kind has its dependencies.
std::string depOf(const SpecView& spec, const std::string& kind) {
    for (const ImageView& image : spec.images) {
        if (image.text("type") == kind) return image.key("dep");
    }
    return "";
}

// The tars that the device fetches, by their local names.
std::vector<std::string> fetchedTars(const Selection& selection) {
    std::vector<std::string> names = {kScriptTar};
    for (const ImageChoice& choice : selection.images) {
        if (choice.outcome == ImageChoice::eKept || choice.outcome == ImageChoice::ePromoted)
            names.push_back(choice.localName);
    }
    return names;
}

// The volumes that the plan makes for images, and the old ones that keep an erase block at least.
std::vector<VolumeNeed> volumesOf(const FleetRow& row) {
    std::vector<VolumeNeed> needs;
    const Plan& plan = row.plans[0];
    UpdateSpecVer1* spec = row.selection.record.get();
    for (UpdateSpecVer1::Part* part = firstPart(spec); part != nullptr; part = nextPart(spec, part)) {
        char name[kVolumeNameSize] = "";
        if (isScript(*part) || make_ubiVolume(plan.activeSet ^ 1, *part, name) != 0) continue;
        if (std::count(plan.volumes.begin(), plan.volumes.end(), name) == 0) continue;
        const bool isKernel = part->type == UpdateSpecVer1::eTypeKernel;
        needs.push_back({isKernel ? "kernel" : "rootfs", part->img.imsize});
    }
    if (plan.volumes.empty()) return needs;
    const InactiveSet& inactive = row.device.inactive;
    for (const auto& [kind, before] :
         {std::pair("kernel", inactive.kernel), std::pair("rootfs", inactive.rootfs)}) {
        const auto isNew = [kind = kind](const VolumeNeed& need) { return need.kind == kind; };
        if (before != kMissing && std::none_of(needs.begin(), needs.end(), isNew))
            needs.push_back({std::string("old ") + kind, 1});
    }
    return needs;
}

RoomNeed roomOn(const SpecView& spec, const Tars& tars, const FleetRow& row) {
    if (!row.accepts()) return roomFor(spec, {}, {});
    RoomNeed room = roomFor(spec, tars, fetchedTars(row.selection));
    room.volumes = volumesOf(row);
    if (!room.clonesOverlay) return room;
    room.overlay = row.device.room.data.value_or(0);
    if (row.device.inactive.data == kMissing)
        room.volumes.insert(room.volumes.begin(), {"data", room.overlay});
    return room;
}

// The version of what the device runs; empty: not one that a device reads.
std::optional<PackedVersion> runningVersion(const DeviceKind& device, const std::string& kind) {
    PackedVersion version = 0;
    const std::string& running = kind == "kernel" ? device.kernel : device.rootfs;
    return readInstalled(kind, running, &version) ? std::optional<PackedVersion>(version) : std::nullopt;
}

std::optional<PackedVersion> newVersion(const BootVolume& volume) {
    PackedVersion version = 0;
    if (volume.content != BootVolume::eNew || parseVersion(&version, volume.version.c_str()) != 0)
        return std::nullopt;
    return version;
}

// The first field tells one numbering from another.
uint64_t firstField(PackedVersion version) {
    return version >> 48;
}

// Both images have a version of the numbering of the other one, and the numberings differ.
bool areExchanged(const std::vector<BootVolume>& boots, const DeviceKind& device) {
    const auto kernel = newVersion(boots[0]);
    const auto rootfs = newVersion(boots[1]);
    const auto oldKernel = runningVersion(device, "kernel");
    const auto oldRootfs = runningVersion(device, "rootfs");
    if (!kernel || !rootfs || !oldKernel || !oldRootfs) return false;
    return firstField(*kernel) == firstField(*oldRootfs) && firstField(*rootfs) == firstField(*oldKernel) &&
           firstField(*kernel) != firstField(*rootfs);
}

// "kernel 33, rootfs 197"
std::string lebsText(const RoomNeed& need, uint64_t lebSize) {
    std::string text;
    for (const VolumeNeed& volume : need.volumes) {
        const uint64_t lebs = (volume.bytes + lebSize - 1) / lebSize;
        text += (text.empty() ? "" : ", ") + volume.kind + " " + std::to_string(lebs);
    }
    return text;
}

}  // namespace

std::vector<FleetRow> planFleet(const SpecView& spec, UpdateState refusedIn,
                                const std::vector<DeviceKind>& devices, const Tars& tars) {
    std::vector<FleetRow> fleet;
    for (const DeviceKind& device : devices) {
        FleetRow row = {device, selectOn(spec.file, refusedIn, device), {}, {}};
        for (uint32_t set : {0U, 1U}) {
            row.plans[set] = planRun(row.selection, device.inactive, set);
            row.plans[set].boots = bootVolumes(spec, row.selection, device.inactive, row.plans[set]);
        }
        row.room = roomOn(spec, tars, row);
        fleet.push_back(std::move(row));
    }
    return fleet;
}

Findings reportRefusals(const SpecView& spec, const std::vector<FleetRow>& fleet) {
    Findings findings;
    for (const FleetRow& row : fleet) {
        if (row.accepts() && row.device.mustRefuse)
            findings.add(eDeviceAccepts, spec.at(""),
                         nameOf(row.device) + " accepts the update, and is named as one that refuses it.");
        if (row.accepts() || row.device.mustRefuse) continue;
        const Selection& selection = row.selection;
        const bool isKind = selection.refusedKey == "kernel" || selection.refusedKey == "rootfs";
        const std::string reason = selection.reason.empty() ? "" : " " + selection.reason;
        Finding& finding = findings.add(
            eDeviceRefuses, spec.at(isKind ? depOf(spec, selection.refusedKey) : selection.refusedKey),
            withFullStop(nameOf(row.device) + " refuses the update: " + withMeaning(selection.refusal)) +
                reason);
        if (!selection.advice.empty()) finding.advice = selection.advice;
    }
    return findings;
}

bool FleetRow::bootsBlank() const {
    const std::vector<BootVolume>& boots = plans[0].boots;
    return std::any_of(boots.begin(), boots.end(),
                       [](const BootVolume& volume) { return volume.version == kBlank; });
}

bool FleetRow::bootsRefusedPair() const {
    const std::vector<BootVolume>& boots = plans[0].boots;
    return std::any_of(boots.begin(), boots.end(),
                       [](const BootVolume& volume) { return !volume.refusedBy.empty(); });
}

// What the device runs, against what it will; the device never compares the two.
Findings reportVersions(const SpecView& spec, const std::vector<FleetRow>& fleet) {
    Findings findings;
    for (const FleetRow& row : fleet) {
        const std::vector<BootVolume>& boots = row.plans[0].boots;
        size_t images = 0;
        size_t same = 0;
        if (!boots.empty() && areExchanged(boots, row.device)) {
            findings.add(eVersionsExchanged, spec.at(""),
                         nameOf(row.device) + " gets the kernel " + boots[0].version + " and the rootfs " +
                             boots[1].version + ": each looks like a version of the other.");
            continue;
        }
        for (const BootVolume& volume : boots) {
            const auto before = runningVersion(row.device, volume.kind);
            const auto after = newVersion(volume);
            if (volume.content == BootVolume::eNew) ++images;
            if (!before || !after) continue;
            if (*after == *before) ++same;
            if (*after < *before)
                findings.add(eDowngrade, spec.at(""),
                             nameOf(row.device) + " boots the " + volume.kind + " " + volume.version +
                                 " afterwards, an older one.");
        }
        if (images != 0 && same == images)
            findings.add(eSameVersion, spec.at(""),
                         nameOf(row.device) + " runs the versions of all images of the update already.");
    }
    return findings;
}

Findings reportModels(const SpecView& spec, const std::vector<FleetRow>& fleet) {
    Findings findings;
    std::istringstream models(spec.text("hardware"));
    for (std::string model; !fleet.empty() && std::getline(models, model, ',');) {
        const auto isOfModel = [&model](const FleetRow& row) { return row.device.model == model; };
        if (std::any_of(fleet.begin(), fleet.end(), isOfModel)) continue;
        Finding& finding = findings.add(eModelUnnamed, spec.at("hardware"),
                                        "The update is for the model \"" + model +
                                            "\" too, and no device that was named is of it.");
        if (fleet.size() == 1) finding.severity = eNote;  // the plan for one device is asked for
    }
    return findings;
}

Findings reportProcessors(const SpecView& spec, const Tars& tars, const std::vector<FleetRow>& fleet) {
    Findings findings;
    for (const FleetRow& row : fleet) {
        const std::string& word = row.device.processor;
        if (word.empty() || !row.accepts()) continue;
        const std::vector<std::string> fetched = fetchedTars(row.selection);
        for (const TarFacts& tar : tars) {
            if (std::count(fetched.begin(), fetched.end(), tar.localName) == 0) continue;
            if (tar.processor.empty() || runsOn(word, tar.processor)) continue;
            findings.add(eImageProcessor, spec.at(tar.keyPrefix + "image"),
                         nameOf(row.device) + " has the processor " + word + ", and the " + tar.kind +
                             " of " + tar.path + " is for " + tar.processor + ".");
        }
    }
    return findings;
}

bool FleetRow::lacksRoom() const {
    return fitsTmp(room, device.room) == eFitsNot || fitsLebs(room, device.room) == eFitsNot;
}

Findings reportLackOfRoom(const SpecView& spec, const FleetRow& row) {
    Findings findings;
    const DeviceRoom& room = row.device.room;
    if (fitsTmp(row.room, room) == eFitsNot) {
        Finding& finding = findings.add(eRoomTmp, spec.at(""),
                                        nameOf(row.device) + " has " + std::to_string(*room.tmp) +
                                            " bytes in /tmp, and the update needs " +
                                            std::to_string(row.room.peak()) + " there.");
        if (!row.room.isExact)
            finding.severity = eWarning;  // the files may be smaller than the spec's limits
    }
    if (room.tmp && fitsTmp(row.room, room) == eFitUnknown)
        findings.add(eRoomUncertain, spec.at(""),
                     nameOf(row.device) + " has " + std::to_string(*room.tmp) +
                         " bytes in /tmp, and whether they are enough is not certain: " +
                         (row.room.isKnown ? "the size of the overlay's copy" : "the size of a tar") +
                         " is not known.");
    if (room.freeLebs && fitsLebs(row.room, room) == eFitUnknown)
        findings.add(eRoomUncertain, spec.at(""),
                     nameOf(row.device) + " has " + std::to_string(*room.freeLebs) +
                         " LEBs, and whether they are enough is not certain: the size of the new data "
                         "volume is not known.");
    if (row.room.imageLebSize != 0 && room.lebSize && row.room.imageLebSize != *room.lebSize)
        findings.add(eImageLebSize, spec.at(""),
                     nameOf(row.device) + " has LEBs of " + std::to_string(*room.lebSize) +
                         " bytes, and the update has a UBIFS for LEBs of " +
                         std::to_string(row.room.imageLebSize) + ".");
    if (fitsLebs(row.room, room) == eFitsNot) {
        findings.add(eRoomLebs, spec.at(""),
                     nameOf(row.device) + " has " + std::to_string(*room.freeLebs) +
                         " LEBs for the new volumes, and they need " +
                         std::to_string(row.room.lebs(*room.lebSize)) + ": " +
                         lebsText(row.room, *room.lebSize) + ".");
    }
    return findings;
}

Findings reportBoots(const SpecView& spec, const std::vector<FleetRow>& fleet) {
    Findings findings;
    for (const FleetRow& row : fleet) {
        std::string blank;
        for (const BootVolume& volume : row.plans[0].boots) {  // those of the other active set are the same
            if (volume.version == kBlank) blank += (blank.empty() ? "" : ", ") + volume.kind;
            if (volume.refusedBy.empty()) continue;
            findings.add(eBootsRefusedPair, spec.at(depOf(spec, volume.refusedBy)),
                         nameOf(row.device) + " boots the new " + volume.refusedBy + " with the " +
                             volume.kind + " " + volume.version +
                             " that an earlier update left, which its dependencies refuse.");
        }
        if (blank.empty()) continue;
        Finding& finding =
            findings.add(eBootsBlank, spec.at(""),
                         nameOf(row.device) + " boots a set in which this is blank: " + blank + ".");
        if (blank != "data") continue;
        finding.severity = eWarning;  // a file system can be made on it
        finding.advice =
            "Set clone_overlay to 1, or make sure that the device can start with an empty volume.";
    }
    return findings;
}
