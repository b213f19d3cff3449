#include "fleet.h"

#include "device_log.h"
#include "util/installed_version.h"
#include "work_dir.h"

#include <algorithm>
#include <cerrno>
#include <sstream>

namespace {

std::string* fieldOf(DeviceKind* device, const std::string& name) {
    if (name == "model") return &device->model;
    if (name == "kernel") return &device->kernel;
    if (name == "rootfs") return &device->rootfs;
    if (name == "inactive-kernel") return &device->inactive.kernel;
    if (name == "inactive-rootfs") return &device->inactive.rootfs;
    return nullptr;
}

Fault refuseText(const std::string& text) {
    return {EINVAL, "\"" + text + "\" is no device: model=...,kernel=...,rootfs=... is required"};
}

Fault refuseInactive(const std::string& text, const std::string& why) {
    return {EINVAL, "\"" + text + "\": " + why};
}

bool isBlankOr(const std::string& text, int rc) {
    return text.empty() || text == kBlank || rc == 0;
}

// `isAllBlank`: "inactive=blank" was given.
Fault settleInactive(const std::string& text, bool isAllBlank, InactiveSet* inactive) {
    if (isAllBlank && !(inactive->kernel + inactive->rootfs).empty())
        return refuseInactive(text, "inactive=blank goes with no other word of the inactive set");
    PackedVersion version = 0;
    std::string release = inactive->kernel;
    if (!isBlankOr(inactive->kernel, parseKernelRelease(&version, release.data())))
        return refuseInactive(text, "inactive-kernel is a kernel release, or blank");
    if (!isBlankOr(inactive->rootfs, parseVersion(&version, inactive->rootfs.c_str())))
        return refuseInactive(text, "inactive-rootfs is a version, or blank");
    if (isAllBlank) *inactive = {kBlank, kBlank, kBlank};
    return {};
}

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

RoomNeed roomOn(const SpecView& spec, const Tars& tars, const FleetRow& row) {
    if (!row.accepts()) return roomFor(spec, {}, {}, false);
    const std::vector<std::string> names = fetchedTars(row.selection);
    return roomFor(spec, tars, names, names.size() > 1);
}

}  // namespace

Fault parseDeviceKind(const std::string& text, DeviceKind* device) {
    std::istringstream stream(text);
    bool isAllBlank = false;
    for (std::string piece; std::getline(stream, piece, ',');) {
        if (piece == "inactive=blank" && !isAllBlank) {
            isAllBlank = true;
            continue;
        }
        const size_t equals = piece.find('=');
        std::string* field = equals == std::string::npos ? nullptr : fieldOf(device, piece.substr(0, equals));
        if (field == nullptr || !field->empty()) return refuseText(text);
        *field = piece.substr(equals + 1);
        if (field->empty()) return refuseText(text);
    }
    if (device->model.empty() || device->kernel.empty() || device->rootfs.empty()) return refuseText(text);
    return settleInactive(text, isAllBlank, &device->inactive);
}

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
