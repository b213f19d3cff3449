#include "launcher/web/web_server.h"

#include "launcher/message.h"
#include "launcher/web/certificate.h"
#include "launcher/web/host_program.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/text_files.h"
#include "util/descriptor.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <utility>

namespace rovusim {
namespace {

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

std::string configuration(const std::vector<ServedUrl>& urls, const std::string& home) {
    std::map<std::string, std::string> servers;
    for (const ServedUrl& url : urls)
        servers[listenLines(url)] += "location \"" + url.path + "\" { alias \"" + url.directory + "/\"; }\n";
    std::string text = "user root; error_log error.log; pid nginx.pid; events {} http { access_log off;\n";
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
        text += std::string(kind) + "_temp_path " + home + "/temp;\n";
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

int mapHosts(const std::vector<std::string>& hosts, const std::string& home) {
    std::string text = "127.0.0.1 localhost\n";
    for (const std::string& host : hosts) {
        if (!isAddress(host)) text.append("127.0.0.1 ").append(host).append("\n");
    }
    if (int rc = replaceTextFile(home + "/hosts", text); rc != 0) return cannot("write to", home, rc);
    if (mount((home + "/hosts").c_str(), "/etc/hosts", nullptr, MS_BIND, nullptr) != 0)
        return cannot("replace", "/etc/hosts", errno);
    return 0;
}

// It goes to the background once it listens.
int startServer(const std::vector<ServedUrl>& urls, const std::string& home, const sigset_t& signalMask) {
    if (int rc = replaceTextFile(home + "/nginx.conf", configuration(urls, home)); rc != 0)
        return cannot("write to", home, rc);
    if (runHostProgram({"nginx", "-p", home, "-e", "error.log", "-c", "nginx.conf"}, signalMask) == 0)
        return 0;
    complain("nginx, which --serve needs, did not start");
    return EIO;
}

}  // namespace

int serveUrls(const std::vector<ServedUrl>& urls, const sigset_t& signalMask) {
    if (urls.empty()) return 0;
    const std::string home = std::string(kHomeInside) + "/serve";
    const std::vector<std::string> hosts = hostsOf(urls);
    if (int rc = makeDirectories(home); rc != 0) return cannot("write to", home, rc);
    if (int rc = mapHosts(hosts, home); rc != 0) return rc;
    for (const char* name :
         {"http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
        unsetenv(name);
    if (int rc = raiseNetwork(hosts); rc != 0) return rc;
    const bool anyHttps =
        std::any_of(urls.begin(), urls.end(), [](const ServedUrl& url) { return url.isHttps; });
    if (int rc = anyHttps ? trustNewCertificate(hosts, home, signalMask) : 0; rc != 0) return rc;
    return startServer(urls, home, signalMask);
}

}  // namespace rovusim
