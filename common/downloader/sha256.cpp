#include "downloader/downloader.h"
#include "util/command.h"

namespace {

constexpr uint32_t kDigestLength = 64;

}  // namespace

int verifySha256(const std::string& path, const std::string& hash) {
    // The buffer ends with the digest: the file's name after it is not read.
    char digest[kDigestLength + 1];
    int exitStatus = 0;
    const std::string line = "sha256sum '" + path + "'";
    const int32_t got = runCommand(line.c_str(), digest, sizeof digest, &exitStatus, nullptr);
    if (got != static_cast<int32_t>(kDigestLength) || exitStatus != 0) return 1;
    return hash == digest ? 0 : 1;
}
