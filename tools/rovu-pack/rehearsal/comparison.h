// A run against its plan.

#pragma once

#include "plan.h"
#include "simulated_run.h"

#include <string>
#include <vector>

/// \param tars of the spec: what the new volumes must hold.
/// \return a sentence for each difference, the most telling first; none if the run was what the plan predicts.
std::vector<std::string> differences(const Selection& selection, const Plan& plan, const Tars& tars,
                                     const SimulatedRun& run);
