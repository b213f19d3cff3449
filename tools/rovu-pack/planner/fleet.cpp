#include "fleet.h"

#include "device_log.h"
#include "work_dir.h"

#include <cerrno>
#include <sstream>

namespace {

std::string* fieldOf(DeviceKind* device, const std::string& name) {
    if (name == "model") return &device->model;
    if (name == "kernel") return &device->kernel;
    if (name == "rootfs") return &device->rootfs;
    return nullptr;
}

Fault refuseText(const std::string& text) {
    return {EINVAL, "\"" + text + "\" is no device: model=...,kernel=...,rootfs=... is required"};
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
    size_t count = 0;
    for (std::string piece; std::getline(stream, piece, ','); ++count) {
        const size_t equals = piece.find('=');
        std::string* field = equals == std::string::npos ? nullptr : fieldOf(device, piece.substr(0, equals));
        if (field == nullptr || !field->empty()) return refuseText(text);
        *field = piece.substr(equals + 1);
        if (field->empty()) return refuseText(text);
    }
    return count == 3 ? Fault() : refuseText(text);
}

std::vector<FleetRow> planFleet(const SpecView& spec, UpdateState refusedIn,
                                const std::vector<DeviceKind>& devices, const Tars& tars) {
    std::vector<FleetRow> fleet;
    for (const DeviceKind& device : devices) {
        FleetRow row = {device, selectOn(spec.file, refusedIn, device), {}, {}};
        for (uint32_t set : {0U, 1U})
            row.plans[set] = planRun(row.selection, set);
        row.room = roomOn(spec, tars, row);
        fleet.push_back(std::move(row));
    }
    return fleet;
}

Findings reportRefusals(const SpecView& spec, const std::vector<FleetRow>& fleet) {
    Findings findings;
    for (const FleetRow& row : fleet) {
        if (row.accepts()) continue;
        const DeviceKind& device = row.device;
        findings.add(eDeviceRefuses, spec.at(row.selection.refusedKey),
                     withFullStop("The device " + device.model + " with kernel " + device.kernel +
                                  " and rootfs " + device.rootfs +
                                  " refuses the update: " + row.selection.refusal));
    }
    return findings;
}
