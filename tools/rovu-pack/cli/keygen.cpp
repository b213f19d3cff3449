// Makes the key pair that signs specs.

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

int makePair(const std::string& folder, std::string* error) {
    if (mkdir(folder.c_str(), kFolderMode) != 0 && errno != EEXIST) return fileError(folder, errno, error);
    const std::string privatePath = folder + kPrivateName;
    const std::string publicPath = folder + kPublicName;
    for (const std::string& path : {privatePath, publicPath}) {
        if (exists(path)) return fileError(path, EEXIST, error);
    }
    std::string privatePem;
    std::string publicPem;
    if (int rc = makeKeyPair(&privatePem, &publicPem, error); rc != 0) return rc;
    if (int rc = createFile(privatePath, privatePem, kPrivateMode, error); rc != 0) return rc;
    if (int rc = createFile(publicPath, publicPem, kPublicMode, error); rc != 0) {
        unlink(privatePath.c_str());
        return rc;
    }
    printf("%s  private key: keep it secret, it signs updates\n%s  public key: for the devices\n",
           privatePath.c_str(), publicPath.c_str());
    return 0;
}

}  // namespace

int runKeygen(const std::string& folder) {
    std::string error;
    if (makePair(folder, &error) == 0) return kExitClean;
    fprintf(stderr, "rovu-pack keygen: %s\n", error.c_str());
    return kExitTrouble;
}
