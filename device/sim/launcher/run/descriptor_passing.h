// Passes an open descriptor from one process to another over a socket.
#pragma once

#include "util/descriptor.h"

namespace rovusim {

/// Sends `fd`, which stays open here.
/// \return 0 or a positive errno value.
[[nodiscard]] int sendDescriptor(int socket, int fd);

/// Waits for a descriptor, which is close-on-exec here.
/// \return 0, EPIPE if the peer has closed the socket, or another positive errno value.
[[nodiscard]] int receiveDescriptor(int socket, zem::Descriptor* received);

}  // namespace rovusim
