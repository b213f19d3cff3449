// A device at a glance, for a person.
#pragma once

#include <string>

namespace rovusim {

/// Prints what the device is, runs and holds.
/// \return 0, or a positive errno value after a message.
int showDevice(const std::string& stateDir);

}  // namespace rovusim
