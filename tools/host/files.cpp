// The order in replaceFile() is the promise: write, sync, then rename.

#include "host/files.h"

#include "util/descriptor.h"
#include "util/file.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr size_t kReadChunk = 65536;
constexpr mode_t kPermissions = 07777;

const char* kindText(mode_t mode) {
    if (S_ISDIR(mode)) return "a folder";
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISSOCK(mode)) return "a socket";
    return S_ISCHR(mode) || S_ISBLK(mode) ? "a device" : "of another kind";
}

Fault requireRegular(const std::string& path, const struct stat& status) {
    if (S_ISREG(status.st_mode)) return {};
    return {EINVAL, path + ": it is " + kindText(status.st_mode) + ", and a regular file is required"};
}

// Returns 0 or an errno value.
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

// Syncs, and closes `fd` on every exit path. Returns 0 or an errno value.
int writeAll(int fd, const std::string& bytes) {
    return writeFd(fd, bytes.data(), static_cast<uint32_t>(bytes.size()), true, true);
}

// A FIFO lies in another file system.
bool isNamelessPipe(int fd) {
    struct statfs system;
    return fstatfs(fd, &system) == 0 && system.f_type == PIPEFS_MAGIC;
}

// `takesPipe`: one without a name is taken too.
Fault openToRead(const std::string& path, File* file, struct stat* status, bool takesPipe = false) {
    zem::Descriptor opened(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!opened.isOpen() || fstat(opened.get(), status) != 0) return fileFault(path, errno);
    if (takesPipe && isNamelessPipe(opened.get())) {
        if (fcntl(opened.get(), F_SETFL, 0) != 0)
            return fileFault(path, errno);  // its reader waits for bytes
    } else if (Fault fault = requireRegular(path, *status)) {
        return fault;
    }
    File stream(fdopen(opened.get(), "rb"));
    if (stream == nullptr) return fileFault(path, errno);
    [[maybe_unused]] const int owned = opened.release();  // by the stream
    *file = std::move(stream);
    return {};
}

}  // namespace

Fault fileFault(const std::string& path, int code) {
    return {code, path + ": " + strerror(code)};
}

Fault openRegularFile(const std::string& path, File* file, uint64_t* size) {
    struct stat status = {};
    if (Fault fault = openToRead(path, file, &status)) return fault;
    *size = static_cast<uint64_t>(status.st_size);
    return {};
}

Fault openFileOrPipe(const std::string& path, File* file) {
    struct stat status = {};
    return openToRead(path, file, &status, true);
}

Fault requireRegularFile(const std::string& path, uint64_t* size) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) return fileFault(path, errno);
    if (Fault fault = requireRegular(path, status)) return fault;
    *size = static_cast<uint64_t>(status.st_size);
    return {};
}

Fault readWholeFile(const std::string& path, std::string* bytes) {
    File file;
    uint64_t size = 0;
    if (Fault fault = openRegularFile(path, &file, &size)) return fault;
    std::string read;
    if (int rc = readToEnd(fileno(file.get()), &read); rc != 0) return fileFault(path, rc);
    bytes->swap(read);
    return {};
}

Fault replaceFile(const std::string& path, const std::string& bytes, mode_t mode) {
    std::string temporary = path + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) return fileFault(temporary, errno);
    const mode_t mask = umask(0);
    umask(mask);
    int rc = fchmod(fd, mode & ~mask) == 0 ? 0 : errno;
    if (int written = writeAll(fd, bytes); rc == 0) rc = written;
    if (rc == 0 && rename(temporary.c_str(), path.c_str()) != 0) rc = errno;
    if (rc == 0) return {};
    unlink(temporary.c_str());
    return fileFault(path, rc);
}

Fault resolveFile(const std::string& path, std::string* real, mode_t* mode) {
    char resolved[PATH_MAX];
    struct stat status;
    if (realpath(path.c_str(), resolved) == nullptr || stat(resolved, &status) != 0)
        return fileFault(path, errno);
    *real = resolved;
    *mode = status.st_mode & kPermissions;
    return {};
}

Fault createFile(const std::string& path, const std::string& bytes, mode_t mode) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd < 0) return fileFault(path, errno);
    if (int rc = writeAll(fd, bytes); rc != 0) {
        unlink(path.c_str());
        return fileFault(path, rc);
    }
    return {};
}
