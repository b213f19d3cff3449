// The command "check".

#pragma once

#include "check_update.h"

#include <string>
#include <vector>

struct CheckCommandOptions {
    CheckOptions check;
    DeviceKind device;                 ///< empty, or one device
    std::vector<std::string> devices;  ///< more, as "model=...,kernel=...,rootfs=..."
    bool strict = false;               ///< warnings count for the exit status too
    bool json = false;
};

/// Prints what devices will do with a spec, and what its owner will regret. Errors are printed to stderr.
///
/// \return the exit status
int runCheck(CheckCommandOptions options);
