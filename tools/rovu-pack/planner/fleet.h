// What an update does on each kind of device of a fleet.

#pragma once

#include "plan.h"
#include "room.h"

struct FleetRow {
    DeviceKind device;
    Selection selection;
    Plan plans[2];  // by the active set
    RoomNeed room;

    bool accepts() const { return selection.refusal.empty(); }
};

/// Reads "model=RV-20,kernel=3.10.49-2,rootfs=2.4.1", in any order.
/// \return 0, or EINVAL with a sentence in `*error`.
int parseDeviceKind(const std::string& text, DeviceKind* device, std::string* error);

/// Adds a finding for each kind of device that refuses a spec which is good in itself.
std::vector<FleetRow> planFleet(const SpecView& spec, const std::vector<DeviceKind>& devices,
                                const Tars& tars, Findings* findings);
