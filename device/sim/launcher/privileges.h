// What root may do inside a device.
#pragma once

namespace rovusim {

/// Gives up, for this process and all that it starts, every capability with which root could reach the host:
/// restarting it, mounting over the read-only root, making device nodes, changing the network or the clock.
/// \return 0, or a positive errno value after a message.
int dropHostPrivileges();

}  // namespace rovusim
