// A URL that a local folder answers inside a device.
#pragma once

#include <string>

namespace rovusim {

struct ServedUrl {
    bool isHttps = false;
    std::string host;  // a name or an IPv4 address
    int port = 80;
    std::string path;       // begins and ends with a slash
    std::string directory;  // absolute
};

/// Whether a host is an IPv4 address and no name.
[[nodiscard]] bool isAddress(const std::string& host);

/// Parses "http://HOST[:PORT][/PATH]=DIR", or the same with https; `why` says what is wrong with it.
/// \return whether it is valid.
[[nodiscard]] bool parseServedUrl(const std::string& text, ServedUrl* url, std::string* why);

}  // namespace rovusim
