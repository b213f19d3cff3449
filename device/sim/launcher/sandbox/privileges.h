// The capabilities of root inside a device.
#pragma once

namespace rovusim {

/// Drops, for this process and its future children, every capability that affects the host: to restart it,
/// to mount over the read-only root, to make device nodes, to change the network or the clock.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int dropHostPrivileges();

}  // namespace rovusim
