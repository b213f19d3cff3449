// The whole check of one spec.

#pragma once

#include "fleet.h"
#include "served_files.h"

struct CheckOptions {
    std::string spec;
    SignatureUse signatureUse;
    FileOptions files;  // an empty folder: files are not looked at
    std::vector<DeviceKind> devices;
};

struct CheckResult {
    SpecFile spec;
    Findings findings;  // sorted
    Tars tars;
    RoomNeed room;
    std::vector<FleetRow> fleet;  // a row for each device of the options
};

/// \return 0, whatever was found; or a positive errno value with a sentence in `*error` if a file of the
///         options cannot be read.
int checkUpdate(const CheckOptions& options, CheckResult* result, std::string* error);
