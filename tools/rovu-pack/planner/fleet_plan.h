// What an update does on each kind of device of a fleet: one plan for each active set.

#pragma once

#include "host/fault.h"
#include "planner/plan.h"
#include "planner/room.h"

struct FleetRow {
    DeviceKind device;
    Selection selection;
    Plan plans[2];  // by the active set
    RoomNeed room;

    bool accepts() const { return selection.refusal.empty(); }
    bool bootsBlank() const;        // a volume of the set that boots is blank
    bool lacksRoom() const;         // in /tmp or on the flash
    bool bootsRefusedPair() const;  // the dependencies of what is new refuse what it boots with
};

/// \param refusedIn the state in which every device refuses the spec; eStateInvalid: none.
/// \return a row for each of `devices`, in their order.
std::vector<FleetRow> planFleet(const SpecView& spec, UpdateState refusedIn,
                                const std::vector<DeviceKind>& devices, const Tars& tars);

/// A finding for each kind of device that refuses a spec which not every device refuses.
Findings reportRefusals(const SpecView& spec, const std::vector<FleetRow>& fleet);

/// A finding for each kind of device and image that is older than what runs there, and for a device whose versions the
/// update does not change, or exchanges.
Findings reportVersions(const SpecView& spec, const std::vector<FleetRow>& fleet);

/// A finding for each model of the spec that is none of the devices'.
Findings reportModels(const SpecView& spec, const std::vector<FleetRow>& fleet);

/// A finding for each kind of device, of which the processor is known, and image that it installs and that is for
/// another one.
Findings reportProcessors(const SpecView& spec, const Tars& tars, const std::vector<FleetRow>& fleet);

/// A finding for each kind of room, as far as it is known, of which a device has too little, or perhaps.
Findings reportLackOfRoom(const SpecView& spec, const FleetRow& row);

/// A finding for each kind of device, of which the inactive set is known, that boots a blank volume or a pair which
/// the dependencies of a new image refuse.
Findings reportBoots(const SpecView& spec, const std::vector<FleetRow>& fleet);
