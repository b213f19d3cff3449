// Programs and syntax that a device's root file system lacks for scripts, by the messages of its shell.
//
// A run against its plan.

#pragma once

#include "planner/plan.h"
#include "rehearsal/simulated_run.h"

#include <string>
#include <vector>

/// \param log what a run said.
/// \param root the name of the device's root file system.
/// \return a sentence for each program or option that was not found and each error of syntax, once.
std::vector<std::string> missedIn(const std::string& log, const std::string& root);

/// \param tars of the spec: what the new volumes must hold.
/// \param scriptSeconds that a script may run.
/// \return a sentence for each difference, the most telling first; none if the run was what the plan predicts.
std::vector<std::string> differences(const Selection& selection, const Plan& plan, const Tars& tars,
                                     const SimulatedRun& run, unsigned scriptSeconds);
