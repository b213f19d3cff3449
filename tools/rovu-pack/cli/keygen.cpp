// The subcommand "keygen".

#include "commands.h"
#include "files.h"
#include "signing.h"

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char kPrivateName[] = "/private.pem";
constexpr char kPublicName[] = "/rovu_pub.pem";
constexpr mode_t kFolderMode = 0777;  // the mask narrows it
constexpr mode_t kPrivateMode = 0600;
constexpr mode_t kPublicMode = 0644;

bool exists(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

Fault makePair(const std::string& folder) {
    if (mkdir(folder.c_str(), kFolderMode) != 0 && errno != EEXIST) return fileFault(folder, errno);
    const std::string privatePath = folder + kPrivateName;
    const std::string publicPath = folder + kPublicName;
    for (const std::string& path : {privatePath, publicPath}) {
        if (exists(path))
            return {EEXIST, path + " is there, and unchanged; use it, or name another folder for a new pair"};
    }
    std::string privatePem;
    std::string publicPem;
    if (Fault fault = makeKeyPair(&privatePem, &publicPem)) return fault;
    if (Fault fault = createFile(privatePath, privatePem, kPrivateMode)) return fault;
    if (Fault fault = createFile(publicPath, publicPem, kPublicMode)) {
        unlink(privatePath.c_str());
        return fault;
    }
    printf("%s  private key: keep it secret, it signs updates\n%s  public key: for the devices\n",
           privatePath.c_str(), publicPath.c_str());
    return {};
}

}  // namespace

int runKeygen(const std::string& folder) {
    if (Fault fault = makePair(folder)) return reportFault(" keygen", fault);
    return kExitClean;
}
