// The device's /dev.
#pragma once

#include "launcher/sandbox/sandbox_root.h"

#include <string>

namespace rovusim {

/// Fills `directory` with the usual nodes, the UBI device, and a node for each volume. A static volume's node
/// yields exactly the bytes written; a dynamic volume's node is a block device of the volume's full size.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int makeDeviceNodes(const SandboxPlan& plan, const std::string& directory);

}  // namespace rovusim
