// A summary of a device, for a person.
#pragma once

#include <string>

namespace rovusim {

/// Prints the device's versions, boot sets, volumes and reference files.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int showDevice(const std::string& stateDir);

}  // namespace rovusim
