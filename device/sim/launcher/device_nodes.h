// What stands in the device's /dev.
#pragma once

#include "launcher/sandbox_root.h"

#include <string>

namespace rovusim {

/// Fills the directory: the usual nodes, the UBI device, and a node for each volume. A static volume's node
/// yields exactly the bytes written, a dynamic one's is a block device of the volume's full size.
/// \return 0, or a positive errno value after a message.
int makeDeviceNodes(const SandboxPlan& plan, const std::string& directory);

}  // namespace rovusim
