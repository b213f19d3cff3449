// Appends a secret to a key file. The device finds it by its offset, so nothing in front of it may ever move.

#include "commands.h"
#include "encryption.h"
#include "files.h"
#include "util/file.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <openssl/rand.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t kSecretMode = 0600;

struct Descriptor {  // closes on every way out
    int fd;
    ~Descriptor() {
        if (fd >= 0) close(fd);
    }
};

int appendSecret(const std::string& path, int64_t* offset, std::string* error) {
    const Descriptor file = {open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kSecretMode)};
    if (file.fd < 0) return fileError(path, errno, error);
    // Locked: of two at the same time, each must print its own offset.
    if (flock(file.fd, LOCK_EX) != 0) return fileError(path, errno, error);
    struct stat status;
    if (fstat(file.fd, &status) != 0) return fileError(path, errno, error);
    unsigned char secret[kSecretSize];
    if (!S_ISREG(status.st_mode) || status.st_size > INT32_MAX ||
        RAND_bytes(secret, static_cast<int>(sizeof secret)) != 1) {
        *error = path + ": not a regular file, too large for an offset, or no random bytes to be had";
        return EINVAL;
    }
    if (int rc = writeFd(file.fd, secret, sizeof secret, false, true); rc != 0) {
        fileError(path, rc, error);
        if (ftruncate(file.fd, status.st_size) != 0) *error += ", and half a secret is left at its end";
        return rc;
    }
    *offset = status.st_size;
    return 0;
}

}  // namespace

int runSecret(const std::string& path) {
    int64_t offset = 0;
    std::string error;
    if (appendSecret(path, &offset, &error) != 0) {
        fprintf(stderr, "rovu-pack secret: %s\n", error.c_str());
        return kExitTrouble;
    }
    printf("%s\n", std::to_string(offset).c_str());
    return kExitClean;
}
