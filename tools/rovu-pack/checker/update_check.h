// The complete check of one spec: first the device's own verdict, then the rules, then files and devices.

#pragma once

#include "checker/served_files.h"
#include "host/fault.h"
#include "planner/fleet_plan.h"
#include "spec_view/device_verdict.h"

struct CheckOptions {
    std::string spec;
    SignatureUse signatureUse;
    FileOptions files;  // an empty folder: files are not looked at
    std::vector<DeviceKind> devices;
    bool fetches = false;  // the tars are asked for at their URLs too
};

struct CheckResult {
    SpecFile spec;
    Findings findings;  // sorted
    Tars tars;          // with what their files are, if those were looked at
    RoomNeed room;
    std::vector<FleetRow> fleet;  // a row for each device of the options
};

/// Faults of the update are findings in `*result`.
/// \return a fault if a file of the options cannot be read.
Fault checkUpdate(const CheckOptions& options, CheckResult* result);

/// The same for the spec that `result->spec` already holds; its table is filled in here.
Fault checkLoadedSpec(const CheckOptions& options, CheckResult* result);
