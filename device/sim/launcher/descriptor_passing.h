// Handing an open descriptor from one process to another over a socket.
#pragma once

namespace rovusim {

/// \return 0 or a positive errno value.
int sendDescriptor(int socket, int fd);

/// Waits for one. It closes on exec.
/// \return 0, EPIPE if the other side is gone, or another positive errno value.
int receiveDescriptor(int socket, int* fd);

}  // namespace rovusim
