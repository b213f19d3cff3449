#include "launcher/web/served_url.h"

#include <climits>
#include <cstdlib>

namespace rovusim {
namespace {

constexpr const char* kHostCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-";

bool takePrefix(const std::string& prefix, std::string* text) {
    if (text->compare(0, prefix.size(), prefix) != 0) return false;
    text->erase(0, prefix.size());
    return true;
}

bool takeScheme(std::string* text, ServedUrl* url) {
    url->isHttps = takePrefix("https://", text);
    url->port = url->isHttps ? 443 : 80;
    return url->isHttps || takePrefix("http://", text);
}

bool parsePort(const std::string& text, int* port) {
    char* end = nullptr;
    const long value = strtol(text.c_str(), &end, 10);
    *port = static_cast<int>(value);
    return !text.empty() && *end == '\0' && value > 0 && value <= 65535;
}

// "HOST[:PORT]"
bool parseHost(const std::string& text, ServedUrl* url) {
    const size_t colon = text.find(':');
    url->host = text.substr(0, colon);
    if (colon != std::string::npos && !parsePort(text.substr(colon + 1), &url->port)) return false;
    return !url->host.empty() && url->host.find_first_not_of(kHostCharacters) == std::string::npos;
}

// The server's configuration quotes paths, and has no escape for these characters everywhere.
bool isQuotable(const std::string& path) {
    return path.find_first_of("\"$\\\n") == std::string::npos;
}

}  // namespace

bool isAddress(const std::string& host) {
    return host.find_first_not_of("0123456789.") == std::string::npos;
}

bool parseServedUrl(const std::string& text, ServedUrl* url, std::string* why) {
    *why = "not of the form http[s]://HOST[:PORT][/PATH]=DIR";
    std::string rest = text;
    if (!takeScheme(&rest, url)) return false;
    const size_t equals = rest.find('=');
    if (equals == std::string::npos) return false;
    const std::string address = rest.substr(0, equals);
    const size_t slash = address.find('/');
    if (!parseHost(address.substr(0, slash), url)) return false;
    url->path = slash == std::string::npos ? "/" : address.substr(slash);
    if (url->path.back() != '/') url->path += '/';
    char resolved[PATH_MAX];
    *why = "no such directory";
    if (realpath((rest.substr(equals + 1) + "/.").c_str(), resolved) == nullptr) return false;
    url->directory = resolved;
    *why = "a path with a quote, \"$\" or a backslash cannot be served";
    return isQuotable(url->directory) && isQuotable(url->path);
}

}  // namespace rovusim
