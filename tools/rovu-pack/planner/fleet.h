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
    bool bootsBlank() const;        // a volume of the set that boots is blank
    bool bootsRefusedPair() const;  // the dependencies of what is new refuse what it boots with
};

/// Reads "model=RV-20,kernel=3.10.49-2,rootfs=2.4.1", in any order, and what may be known of the inactive set:
/// "inactive-kernel=3.10.40" and "inactive-rootfs=2.3", each also "=blank", or "inactive=blank".
Fault parseDeviceKind(const std::string& text, DeviceKind* device);

/// \param refusedIn the state in which every device refuses the spec; eStateInvalid: none.
/// \return a row for each of `devices`, in their order.
std::vector<FleetRow> planFleet(const SpecView& spec, UpdateState refusedIn,
                                const std::vector<DeviceKind>& devices, const Tars& tars);

/// A finding for each kind of device that refuses a spec which not every device refuses.
Findings reportRefusals(const SpecView& spec, const std::vector<FleetRow>& fleet);

/// A finding for each kind of device, of which the inactive set is known, that boots a blank volume or a pair which
/// the dependencies of a new image refuse.
Findings reportBoots(const SpecView& spec, const std::vector<FleetRow>& fleet);
