#include "fleet.h"

#include "device_log.h"
#include "install.h"
#include "util/installed_version.h"
#include "work_dir.h"

#include <algorithm>

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

// The volumes that the plan makes for images.
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
    return needs;
}

RoomNeed roomOn(const SpecView& spec, const Tars& tars, const FleetRow& row) {
    if (!row.accepts()) return roomFor(spec, {}, {}, false);
    const std::vector<std::string> names = fetchedTars(row.selection);
    RoomNeed room = roomFor(spec, tars, names, names.size() > 1);
    if (room.clonesOverlay) room.overlay = row.device.room.data.value_or(0);
    room.volumes = volumesOf(row);
    return room;
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
            row.plans[set] = planRun(row.selection, set);
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
        if (row.accepts()) continue;
        findings.add(eDeviceRefuses, spec.at(row.selection.refusedKey),
                     withFullStop(nameOf(row.device) + " refuses the update: " + row.selection.refusal));
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
Findings reportDowngrades(const SpecView& spec, const std::vector<FleetRow>& fleet) {
    Findings findings;
    for (const FleetRow& row : fleet) {
        for (const BootVolume& volume : row.plans[0].boots) {
            if (volume.content != BootVolume::eNew) continue;
            const bool isKernel = volume.kind == "kernel";
            std::string running = isKernel ? row.device.kernel : row.device.rootfs;
            PackedVersion before = 0;
            PackedVersion after = 0;
            const int rc = isKernel ? parseKernelRelease(&before, running.data())
                                    : parseVersion(&before, running.c_str());
            if (rc != 0 || parseVersion(&after, volume.version.c_str()) != 0 || after >= before) continue;
            findings.add(eDowngrade, spec.at(""),
                         nameOf(row.device) + " boots the " + volume.kind + " " + volume.version +
                             " afterwards, an older one.");
        }
    }
    return findings;
}

bool FleetRow::lacksRoom() const {
    return accepts() && (fitsTmp(room, device.room) == eFitsNot || fitsLebs(room, device.room) == eFitsNot);
}

Findings reportLackOfRoom(const SpecView& spec, const std::vector<FleetRow>& fleet) {
    Findings findings;
    for (const FleetRow& row : fleet) {
        const DeviceRoom& room = row.device.room;
        if (row.accepts() && fitsTmp(row.room, room) == eFitsNot) {
            Finding& finding = findings.add(eRoomTmp, spec.at(""),
                                            nameOf(row.device) + " has " + std::to_string(*room.tmp) +
                                                " bytes in /tmp, and the update needs " +
                                                std::to_string(row.room.peak()) + " there.");
            if (!row.room.isExact)
                finding.severity = eWarning;  // the files may be smaller than the spec's limits
        }
        if (row.room.imageLebSize != 0 && room.lebSize && row.room.imageLebSize != *room.lebSize)
            findings.add(eImageLebSize, spec.at(""),
                         nameOf(row.device) + " has LEBs of " + std::to_string(*room.lebSize) +
                             " bytes, and the update has a UBIFS for LEBs of " +
                             std::to_string(row.room.imageLebSize) + ".");
        if (row.accepts() && fitsLebs(row.room, room) == eFitsNot) {
            findings.add(eRoomLebs, spec.at(""),
                         nameOf(row.device) + " has " + std::to_string(*room.freeLebs) +
                             " LEBs for the new volumes, and they need " +
                             std::to_string(row.room.lebs(*room.lebSize)) + ": " +
                             lebsText(row.room, *room.lebSize) + ".");
        }
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
