#include "file_key.h"

#include "util/descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr char kKeyFilePath[] = "/app0/secrets/rovu/preshared";

// One read each: a file that does not give all bytes at once is no key file.
int readKey(int fd, int32_t offset, FileKey* fileKey) {
    if (lseek(fd, offset, SEEK_SET) == -1) return EINVAL;
    if (read(fd, fileKey->key, sizeof fileKey->key) != static_cast<ssize_t>(sizeof fileKey->key))
        return EINVAL;
    if (read(fd, fileKey->iv, sizeof fileKey->iv) != static_cast<ssize_t>(sizeof fileKey->iv)) return EINVAL;
    return 0;
}

}  // namespace

int loadFileKey(int32_t offset, FileKey* fileKey) {
    fileKey->present = offset >= 0;
    if (!fileKey->present) return 0;
    const zem::Descriptor file(open(kKeyFilePath, O_RDONLY));
    if (!file.isOpen()) return errno;
    return readKey(file.get(), offset, fileKey);
}
