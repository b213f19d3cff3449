// The web of a device that has a network of its own: one server for all hosts.
//
// The server runs outside the device, with listening sockets from inside. What runs inside can talk to it, and reach
// neither its process nor its files.
#pragma once

#include "util/descriptor.h"

#include <csignal>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace rovusim {

struct ServedUrl {
    bool isHttps = false;
    std::string host;  // a name or an IPv4 address
    int port = 80;
    std::string path;       // begins and ends with a slash
    std::string directory;  // absolute
};

/// Parses "http://HOST[:PORT][/PATH]=DIR", or the same with https; `why` says what is wrong with it.
/// \return whether it is valid.
[[nodiscard]] bool parseServedUrl(const std::string& text, ServedUrl* url, std::string* why);

/// Writes what the server for `urls` needs into the folder `home`, which is made if it is not there.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int prepareWeb(const std::vector<ServedUrl>& urls, const std::string& home,
                             const sigset_t& signalMask);

/// The files of `home` that replace files inside: pairs of both paths.
std::vector<std::pair<std::string, std::string>> webFiles(const std::vector<ServedUrl>& urls,
                                                          const std::string& home);

/// In a network namespace of its own: gives it the addresses of `urls`, and listens on their ports.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int openPorts(const std::vector<ServedUrl>& urls, std::vector<zem::Descriptor>* listeners);

/// Outside: starts the server, which ends with this process.
/// \return its process, or -1 after a message.
[[nodiscard]] pid_t startWebServer(const std::string& home, const std::vector<zem::Descriptor>& listeners,
                                   const sigset_t& signalMask);

}  // namespace rovusim
