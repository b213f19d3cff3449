#include "launcher/web/certificate.h"

#include "launcher/host_program.h"
#include "launcher/message.h"
#include "launcher/web/served_url.h"

#include <cerrno>

namespace rovusim {
namespace {

std::string alternativeNames(const std::vector<std::string>& hosts) {
    std::string names = "subjectAltName=";
    for (const std::string& host : hosts) {
        if (names.back() != '=') names += ',';
        names += (isAddress(host) ? "IP:" : "DNS:") + host;
    }
    return names;
}

}  // namespace

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

}  // namespace rovusim
