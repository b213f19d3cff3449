// The rehearsal of an update: every kind of device runs it on the simulator, from both sets, and each run is compared
// with its plan.

#pragma once

#include "checker/update_check.h"
#include "rehearsal/simulated_run.h"

#include <functional>
#include <string>
#include <vector>

struct RehearsalRow {
    const FleetRow* planned;  // of the check
    uint32_t activeSet;
    std::vector<std::string> differences;  // none: the run was what the plan predicts
    std::vector<std::string> notes;        // of the new root file system
    std::string log;                       // what the program said
};

/// \param check of that update, with its devices.
/// \param report is called after each run.
/// \return a fault if a run cannot be made, which is no fault of the update.
Fault rehearse(const CheckResult& check, const RehearsalFiles& files,
               const std::function<void(const RehearsalRow&)>& report);
