// The device's /dev.
#pragma once

#include "launcher/sandbox/sandbox_root.h"

#include <string>

namespace rovusim {

/// Fills `directory` with the usual nodes, the UBI device, and a node for each volume. A volume's node
/// is a link to its bytes: of a static volume those written, of a dynamic one its full size.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int makeDeviceNodes(const SandboxPlan& plan, const std::string& directory);

}  // namespace rovusim
