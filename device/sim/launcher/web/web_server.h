// The web inside a device that has a network of its own: one server for all hosts.
#pragma once

#include "launcher/web/served_url.h"

#include <csignal>
#include <vector>

namespace rovusim {

/// Starts a web server for `urls` and maps their hosts to it. This process must be process 1 of a device, in
/// its root and in a network namespace of its own; the server ends with it.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int serveUrls(const std::vector<ServedUrl>& urls, const sigset_t& signalMask);

}  // namespace rovusim
