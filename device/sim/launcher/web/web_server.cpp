#include "launcher/web/web_server.h"

#include "launcher/host_program.h"
#include "rovu_sim/text_files.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <net/if.h>
#include <set>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace rovusim {
namespace {

constexpr const char* kCertificateName = "certificate.pem";
constexpr const char* kCertificateKeyName = "certificate_key.pem";
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

// The server's configuration quotes paths, but cannot escape these characters everywhere.
bool isQuotable(const std::string& path) {
    return path.find_first_of("\"$\\\n") == std::string::npos;
}

bool isAddress(const std::string& host) {
    return host.find_first_not_of("0123456789.") == std::string::npos;
}

std::string alternativeNames(const std::vector<std::string>& hosts) {
    std::string names = "subjectAltName=";
    for (const std::string& host : hosts) {
        if (names.back() != '=') names += ',';
        names += (isAddress(host) ? "IP:" : "DNS:") + host;
    }
    return names;
}

// Where libcurl looks for the authorities that it trusts.
constexpr const char* kAuthorities = "/etc/ssl/certs/ca-certificates.crt";

int raiseLoopback() {
    zem::Descriptor any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request = {};
    request.ifr_name[0] = 'l';
    request.ifr_name[1] = 'o';
    request.ifr_flags = IFF_UP | IFF_LOOPBACK | IFF_RUNNING;
    if (!any.isOpen() || ioctl(any.get(), SIOCSIFFLAGS, &request) != 0)
        return cannot("start", "the loopback interface", errno);
    return 0;
}

// Gives the loopback interface one more address, so that the device reaches it inside.
int addAddress(const std::string& host, size_t number) {
    zem::Descriptor any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request = {};
    snprintf(request.ifr_name, sizeof request.ifr_name, "lo:%zu", number);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    if (inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1)
        return cannot("use the address", host, EINVAL);
    memcpy(&request.ifr_addr, &address, sizeof address);
    const bool isSet = any.isOpen() && ioctl(any.get(), SIOCSIFADDR, &request) == 0;
    if (!isSet && errno != EEXIST) return cannot("use the address", host, errno);
    return 0;
}

int raiseNetwork(const std::vector<std::string>& hosts) {
    if (int rc = raiseLoopback(); rc != 0) return rc;
    size_t number = 1;
    for (const std::string& host : hosts) {
        if (!isAddress(host)) continue;
        if (int rc = addAddress(host, number++); rc != 0) return rc;
    }
    return 0;
}

std::string listenLines(const ServedUrl& url) {
    const std::string lines = "server_name " + url.host + "; listen " + std::to_string(url.port);
    if (!url.isHttps) return lines + ";\n";
    return lines + " ssl; ssl_certificate " + kCertificateName + "; ssl_certificate_key " +
           kCertificateKeyName + ";\n";
}

std::string configuration(const std::vector<ServedUrl>& urls) {
    std::map<std::string, std::string> servers;
    for (const ServedUrl& url : urls)
        servers[listenLines(url)] += "location \"" + url.path + "\" { alias \"" + url.directory + "/\"; }\n";
    std::string text = "daemon off; error_log error.log; pid nginx.pid; events {} http { access_log off;\n";
    // The worker of root's server would be nobody, who cannot read everything that root wants to serve.
    if (geteuid() == 0) text = "user root; " + text;
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
        text += std::string(kind) + "_temp_path temp;\n";
    for (const auto& [listen, locations] : servers)
        text.append("server { ").append(listen).append(locations).append("}\n");
    return text + "}\n";
}

std::vector<std::string> hostsOf(const std::vector<ServedUrl>& urls) {
    std::vector<std::string> hosts;
    for (const ServedUrl& url : urls) {
        if (std::find(hosts.begin(), hosts.end(), url.host) == hosts.end()) hosts.push_back(url.host);
    }
    return hosts;
}

std::string hostsFile(const std::vector<std::string>& hosts) {
    std::string text = "127.0.0.1 localhost\n";
    for (const std::string& host : hosts) {
        if (!isAddress(host)) text.append("127.0.0.1 ").append(host).append("\n");
    }
    return text;
}

int listenOn(int port, zem::Descriptor* listener) {
    listener->reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int yes = 1;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    const bool listens =
        setsockopt(listener->get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) == 0 &&
        bind(listener->get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        listen(listener->get(), SOMAXCONN) == 0;
    return listens ? 0 : cannot("listen on port", std::to_string(port), errno);
}

[[noreturn]] void becomeServer(const std::string& home, const std::vector<zem::Descriptor>& listeners,
                               const sigset_t& signalMask) {
    std::string inherited;
    for (const zem::Descriptor& listener : listeners) {
        fcntl(listener.get(), F_SETFD, 0);
        inherited += std::to_string(listener.get()) + ";";
    }
    // It takes the sockets over, and opens none. See nginx's ngx_add_inherited_sockets().
    setenv("NGINX", inherited.c_str(), 1);
    prctl(PR_SET_PDEATHSIG, SIGTERM);  // by which it ends its worker too
    becomeHostProgram({"nginx", "-p", home, "-e", "error.log", "-c", "nginx.conf"}, signalMask);
}

int makeCertificate(const std::vector<std::string>& hosts, const std::string& home,
                    const sigset_t& signalMask) {
    const std::string key = home + "/" + kCertificateKeyName;
    const std::string certificate = home + "/" + kCertificateName;
    int status = runHostProgram(
        {"openssl", "ecparam", "-name", "prime256v1", "-genkey", "-noout", "-out", key}, signalMask);
    if (status == 0) {
        status = runHostProgram({"openssl", "req", "-x509", "-key", key, "-days", "2", "-subj",
                                 "/CN=rovu-sim", "-addext", alternativeNames(hosts), "-out", certificate},
                                signalMask);
    }
    if (status == 0) return 0;
    complain("openssl, which an https URL needs, made no certificate");
    return EIO;
}

}  // namespace

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

int prepareWeb(const std::vector<ServedUrl>& urls, const std::string& home, const sigset_t& signalMask) {
    const std::vector<std::string> hosts = hostsOf(urls);
    int rc = makeDirectories(home);
    if (rc == 0) rc = replaceTextFile(home + "/hosts", hostsFile(hosts));
    if (rc == 0) rc = replaceTextFile(home + "/nginx.conf", configuration(urls));
    if (rc != 0) return cannot("write to", home, rc);
    const bool anyHttps =
        std::any_of(urls.begin(), urls.end(), [](const ServedUrl& url) { return url.isHttps; });
    return anyHttps ? makeCertificate(hosts, home, signalMask) : 0;
}

std::vector<std::pair<std::string, std::string>> webFiles(const std::vector<ServedUrl>& urls,
                                                          const std::string& home) {
    std::vector<std::pair<std::string, std::string>> files = {{home + "/hosts", "/etc/hosts"}};
    for (const ServedUrl& url : urls) {
        if (url.isHttps && files.size() == 1) files.emplace_back(home + "/" + kCertificateName, kAuthorities);
    }
    return files;
}

int openPorts(const std::vector<ServedUrl>& urls, std::vector<zem::Descriptor>* listeners) {
    if (int rc = raiseNetwork(hostsOf(urls)); rc != 0) return rc;
    std::set<int> ports;
    for (const ServedUrl& url : urls)
        ports.insert(url.port);
    for (const int port : ports) {
        listeners->emplace_back();
        if (int rc = listenOn(port, &listeners->back()); rc != 0) return rc;
    }
    return 0;
}

pid_t startWebServer(const std::string& home, const std::vector<zem::Descriptor>& listeners,
                     const sigset_t& signalMask) {
    const pid_t server = fork();
    if (server == 0) becomeServer(home, listeners, signalMask);
    if (server < 0) cannot("start", "nginx", errno);
    return server;
}

}  // namespace rovusim
