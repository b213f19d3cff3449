// Messages over a socket pair or a listening socket, with open descriptors beside their bytes.
#pragma once

#include "util/descriptor.h"

#include <cstddef>
#include <vector>

namespace rovusim {

/// Sends `size` bytes, at least one, and the descriptors, of which the caller keeps its own.
/// \return 0 or a positive errno value. See unix(7), SCM_RIGHTS.
[[nodiscard]] int sendMessage(int socket, const void* bytes, size_t size,
                              const std::vector<int>& descriptors);

/// Waits for a message of exactly `size` bytes. Its descriptors are close-on-exec here.
/// \return 0, EPIPE if the peer is gone or sent anything else, or another positive errno value.
[[nodiscard]] int receiveMessage(int socket, void* bytes, size_t size,
                                 std::vector<zem::Descriptor>* descriptors);

}  // namespace rovusim
