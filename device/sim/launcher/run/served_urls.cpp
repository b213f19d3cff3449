#include "launcher/run/served_urls.h"

#include "launcher/message.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/text_files.h"
#include "util/descriptor.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <map>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace rovusim {
namespace {

constexpr const char* kHostCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-";

bool parsePort(const std::string& text, int* port) {
    char* end = nullptr;
    const long value = strtol(text.c_str(), &end, 10);
    *port = static_cast<int>(value);
    return !text.empty() && *end == '\0' && value > 0 && value <= 65535;
}

// The server's configuration quotes paths, and has no escape for these characters everywhere.
bool isQuotable(const std::string& path) {
    return path.find_first_of("\"$\\\n") == std::string::npos;
}

int raiseLoopback() {
    Descriptor any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request = {};
    request.ifr_name[0] = 'l';
    request.ifr_name[1] = 'o';
    request.ifr_flags = IFF_UP | IFF_LOOPBACK | IFF_RUNNING;
    if (!any.isOpen() || ioctl(any.get(), SIOCSIFFLAGS, &request) != 0)
        return cannot("start", "the loopback interface", errno);
    return 0;
}

std::string configuration(const std::vector<ServedUrl>& urls, const std::string& home) {
    std::map<std::pair<std::string, int>, std::string> servers;
    for (const ServedUrl& url : urls)
        servers[{url.host, url.port}] +=
            "location \"" + url.path + "\" { alias \"" + url.directory + "/\"; }\n";
    std::string text = "user root; error_log error.log; pid nginx.pid; events {} http { access_log off;\n";
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
        text += std::string(kind) + "_temp_path " + home + "/temp;\n";
    for (const auto& [address, locations] : servers)
        text += "server { listen " + std::to_string(address.second) + "; server_name " + address.first +
                ";\n" + locations + "}\n";
    return text + "}\n";
}

// The server goes to the background once it listens.
int startServer(const std::string& home, const sigset_t& signalMask) {
    const pid_t child = fork();
    if (child < 0) return cannot("start", "nginx", errno);
    if (child == 0) {
        sigprocmask(SIG_SETMASK, &signalMask, nullptr);
        setenv("PATH", kRealPath, 1);
        execlp("nginx", "nginx", "-p", home.c_str(), "-e", "error.log", "-c", "nginx.conf", nullptr);
        cannot("run", "nginx", errno);
        _exit(1);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0) {
        complain("nginx, which --serve needs, did not start");
        return EIO;
    }
    return 0;
}

}  // namespace

bool parseServedUrl(const std::string& text, ServedUrl* url, std::string* why) {
    const std::string scheme = "http://";
    *why = "not of the form http://HOST[:PORT][/PATH]=DIR";
    if (text.compare(0, 8, "https://") == 0) *why = "https cannot be served, only http";
    const size_t equals = text.find('=');
    if (text.compare(0, scheme.size(), scheme) != 0 || equals == std::string::npos) return false;
    const std::string address = text.substr(scheme.size(), equals - scheme.size());
    const size_t slash = address.find('/');
    url->host = address.substr(0, slash);
    url->path = slash == std::string::npos ? "/" : address.substr(slash);
    if (url->path.back() != '/') url->path += '/';
    if (const size_t colon = url->host.find(':'); colon != std::string::npos) {
        if (!parsePort(url->host.substr(colon + 1), &url->port)) return false;
        url->host.erase(colon);
    }
    if (url->host.empty() || url->host.find_first_not_of(kHostCharacters) != std::string::npos) return false;
    const bool isAddress = url->host.find_first_not_of("0123456789.") == std::string::npos;
    *why = "an address outside 127.0.0.0/8 cannot be served; use a host name";
    if (isAddress && url->host.compare(0, 4, "127.") != 0) return false;
    char resolved[PATH_MAX];
    *why = "no such directory";
    if (realpath((text.substr(equals + 1) + "/.").c_str(), resolved) == nullptr) return false;
    url->directory = resolved;
    *why = "a path with a quote, \"$\" or a backslash cannot be served";
    return isQuotable(url->directory) && isQuotable(url->path);
}

int serveUrls(const std::vector<ServedUrl>& urls, const sigset_t& signalMask) {
    if (urls.empty()) return 0;
    const std::string home = std::string(kHomeInside) + "/serve";
    std::string hosts = "127.0.0.1 localhost\n";
    for (const ServedUrl& url : urls)
        hosts += "127.0.0.1 " + url.host + "\n";
    int rc = makeDirectories(home);
    if (rc == 0) rc = replaceTextFile(home + "/hosts", hosts);
    if (rc == 0) rc = replaceTextFile(home + "/nginx.conf", configuration(urls, home));
    if (rc != 0) return cannot("write to", home, rc);
    if (mount((home + "/hosts").c_str(), "/etc/hosts", nullptr, MS_BIND, nullptr) != 0)
        return cannot("replace", "/etc/hosts", errno);
    for (const char* name : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"})
        unsetenv(name);
    if (rc = raiseLoopback(); rc != 0) return rc;
    return startServer(home, signalMask);
}

}  // namespace rovusim
