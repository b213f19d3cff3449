// The certificate of the web server inside a device, which nothing outside trusts.
#pragma once

#include <csignal>
#include <string>
#include <vector>

namespace rovusim {

constexpr const char* kCertificateName = "certificate.pem";
constexpr const char* kCertificateKeyName = "certificate_key.pem";

/// Makes a key and a certificate for `hosts` in the folder `home`.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int makeCertificate(const std::vector<std::string>& hosts, const std::string& home,
                                  const sigset_t& signalMask);

}  // namespace rovusim
