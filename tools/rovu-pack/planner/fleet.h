// What an update does on each kind of device of a fleet: one plan for each active set.

#pragma once

#include "fault.h"
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
Fault parseDeviceKind(const std::string& text, DeviceKind* device);

/// \param refusedIn the state in which every device refuses the spec; eStateInvalid: none.
/// \return a row for each of `devices`, in their order.
std::vector<FleetRow> planFleet(const SpecView& spec, UpdateState refusedIn,
                                const std::vector<DeviceKind>& devices, const Tars& tars);

/// A finding for each kind of device that refuses a spec which not every device refuses.
Findings reportRefusals(const SpecView& spec, const std::vector<FleetRow>& fleet);
