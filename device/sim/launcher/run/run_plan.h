// The plan of a run, from the options and the device.
#pragma once

#include "launcher/run/device_run.h"
#include "launcher/run/sandbox_process.h"

#include <string>

namespace rovusim {

/// Plans the run. The root file system must be there.
/// \param plan has the state directory and the signal mask
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int planRun(const RunOptions& options, StartPlan* plan);

/// Where the web server of a run has its files.
[[nodiscard]] std::string webHomeOf(const std::string& stateDir);

}  // namespace rovusim
