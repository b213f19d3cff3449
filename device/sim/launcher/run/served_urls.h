// Answers URLs from local folders inside a device, whose network then holds nothing else.
#pragma once

#include <csignal>
#include <string>
#include <vector>

namespace rovusim {

struct ServedUrl {
    std::string host;  // a name, or an address in 127.0.0.0/8
    int port = 80;
    std::string path;       // begins and ends with a slash
    std::string directory;  // absolute
};

/// Parses "http://HOST[:PORT][/PATH]=DIR"; `why` says what is wrong with it.
/// \return whether it is valid.
[[nodiscard]] bool parseServedUrl(const std::string& text, ServedUrl* url, std::string* why);

/// Starts a web server for `urls` and maps their hosts to it. This process must be process 1 of a device, in
/// its root and in a network namespace of its own; the server ends with it.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int serveUrls(const std::vector<ServedUrl>& urls, const sigset_t& signalMask);

}  // namespace rovusim
