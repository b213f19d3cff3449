// Answers the simulated tools inside a device.
#pragma once

#include "util/descriptor.h"

#include <string>

namespace rovusim {

struct ToolServer {
    zem::Descriptor listener;  // readable when a tool calls
    std::string stateDir;
    std::string tmp;  // the device's /tmp, as this process knows it
};

/// Listens on the socket `run/channel` of the state directory.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int startToolServer(const std::string& stateDir, const std::string& tmp, ToolServer* server);

/// Answers one call, in a child process that ends by itself, or with this one. A silent peer is disconnected.
/// \param connection accepted from the listener
/// \return whether there is such a process.
[[nodiscard]] bool answerTool(const ToolServer& server, int connection);

/// Removes the socket.
void stopToolServer(const ToolServer& server);

}  // namespace rovusim
