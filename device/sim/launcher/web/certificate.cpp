#include "launcher/web/certificate.h"

#include "launcher/message.h"
#include "launcher/web/host_program.h"
#include "launcher/web/served_url.h"

#include <cerrno>
#include <sys/mount.h>

namespace rovusim {
namespace {

// Where libcurl looks for the authorities that it trusts.
constexpr const char* kAuthorities = "/etc/ssl/certs/ca-certificates.crt";

std::string alternativeNames(const std::vector<std::string>& hosts) {
    std::string names = "subjectAltName=";
    for (const std::string& host : hosts) {
        if (names.back() != '=') names += ',';
        names += (isAddress(host) ? "IP:" : "DNS:") + host;
    }
    return names;
}

}  // namespace

int trustNewCertificate(const std::vector<std::string>& hosts, const std::string& home,
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
    if (status != 0) {
        complain("openssl, which an https URL needs, made no certificate");
        return EIO;
    }
    if (mount(certificate.c_str(), kAuthorities, nullptr, MS_BIND, nullptr) != 0)
        return cannot("replace (which package ca-certificates installs)", kAuthorities, errno);
    return 0;
}

}  // namespace rovusim
