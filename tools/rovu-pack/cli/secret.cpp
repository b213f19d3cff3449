// The subcommand "secret". The device finds a secret by its offset, so nothing before it may ever move.

#include "commands.h"
#include "encryption.h"
#include "files.h"
#include "util/descriptor.h"
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

Fault appendSecret(const std::string& path, int64_t* offset) {
    uint64_t size = 0;
    if (Fault fault = requireRegularFile(path, &size); fault && fault.code() != ENOENT) return fault;
    const zem::Descriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC, kSecretMode));
    if (file.get() < 0) return fileFault(path, errno);
    // Locked: of two at the same time, each must print its own offset.
    if (flock(file.get(), LOCK_EX) != 0) return fileFault(path, errno);
    struct stat status;
    if (fstat(file.get(), &status) != 0) return fileFault(path, errno);
    unsigned char secret[kSecretSize];
    if (!S_ISREG(status.st_mode) || status.st_size > INT32_MAX ||
        RAND_bytes(secret, static_cast<int>(sizeof secret)) != 1) {
        return {EINVAL, path + ": not a regular file, too large for an offset, or no random bytes to be had"};
    }
    if (int rc = writeFd(file.get(), secret, sizeof secret, false, true); rc != 0) {
        Fault fault = fileFault(path, rc);
        if (ftruncate(file.get(), status.st_size) == 0) return fault;
        return {rc, fault.message() + ", and half a secret is left at its end"};
    }
    *offset = status.st_size;
    return {};
}

}  // namespace

int runSecret(const std::string& path) {
    int64_t offset = 0;
    if (Fault fault = appendSecret(path, &offset)) return reportFault(" secret", fault);
    printf("%s\n", std::to_string(offset).c_str());
    return kExitClean;
}
