// Reads and writes of whole files. The order in replaceFile() is the promise: write, sync, then rename.

#include "files.h"

#include "util/file.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t kReadChunk = 65536;

struct Descriptor {  // closes on every way out
    int fd;
    ~Descriptor() {
        if (fd >= 0) close(fd);
    }
};

int readToEnd(int fd, std::string* bytes) {
    char chunk[kReadChunk];
    for (;;) {
        const ssize_t got = read(fd, chunk, sizeof chunk);
        if (got == 0) return 0;
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return errno;
        bytes->append(chunk, static_cast<size_t>(got));
    }
}

// Closes `fd` on every way.
int writeAll(int fd, const std::string& bytes) {
    return writeFd(fd, bytes.data(), static_cast<uint32_t>(bytes.size()), true, true);
}

}  // namespace

int fileError(const std::string& path, int code, std::string* error) {
    *error = path + ": " + strerror(code);
    return code;
}

int readWholeFile(const std::string& path, std::string* bytes, std::string* error) {
    const Descriptor file = {open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    if (file.fd < 0) return fileError(path, errno, error);
    struct stat status;
    if (fstat(file.fd, &status) != 0) return fileError(path, errno, error);
    if (!S_ISREG(status.st_mode)) {
        *error = path + ": not a regular file";
        return EINVAL;
    }
    std::string read;
    if (int rc = readToEnd(file.fd, &read); rc != 0) return fileError(path, rc, error);
    bytes->swap(read);
    return 0;
}

int replaceFile(const std::string& path, const std::string& bytes, mode_t mode, std::string* error) {
    std::string temporary = path + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) return fileError(temporary, errno, error);
    const mode_t mask = umask(0);
    umask(mask);
    int rc = fchmod(fd, mode & ~mask) == 0 ? 0 : errno;
    if (int written = writeAll(fd, bytes); rc == 0) rc = written;
    if (rc == 0 && rename(temporary.c_str(), path.c_str()) != 0) rc = errno;
    if (rc == 0) return 0;
    unlink(temporary.c_str());
    return fileError(path, rc, error);
}

int createFile(const std::string& path, const std::string& bytes, mode_t mode, std::string* error) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd < 0) return fileError(path, errno, error);
    if (int rc = writeAll(fd, bytes); rc != 0) {
        unlink(path.c_str());
        return fileError(path, rc, error);
    }
    return 0;
}
