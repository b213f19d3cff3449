#include "rovu_sim/text_files.h"

#include "util/descriptor.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>

namespace rovusim {

namespace {

constexpr off_t kLargestDeviceFile = 1 << 20;  // bytes

int readAll(const zem::Descriptor& file, std::string* text) {
    std::string all;
    char buffer[16384];
    for (;;) {
        const ssize_t got = read(file.get(), buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return errno;
        if (got == 0) break;
        all.append(buffer, static_cast<size_t>(got));
    }
    text->swap(all);
    return 0;
}

}  // namespace

int readTextFile(const std::string& path, std::string* text) {
    const zem::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file.isOpen() ? readAll(file, text) : errno;
}

int readDeviceFile(const std::string& path, std::string* text) {
    const zem::Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info;
    if (!file.isOpen() || fstat(file.get(), &info) != 0) return errno;
    if (!S_ISREG(info.st_mode) || info.st_size > kLargestDeviceFile) return EILSEQ;
    return readAll(file, text);
}

int writeFully(int fd, const char* bytes, size_t size) {
    while (size > 0) {
        const ssize_t done = write(fd, bytes, size);
        if (done < 0 && errno == EINTR) continue;
        if (done < 0) return errno;
        bytes += done;
        size -= static_cast<size_t>(done);
    }
    return 0;
}

int replaceTextFile(const std::string& path, const std::string& text) {
    const std::string temporary = path + ".tmp";
    zem::Descriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file.isOpen()) return errno;
    int rc = writeFully(file.get(), text.data(), text.size());
    if (rc == 0 && rename(temporary.c_str(), path.c_str()) != 0) rc = errno;
    if (rc != 0) unlink(temporary.c_str());
    return rc;
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

int makeDirectories(const std::string& path) {
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (!part.empty() && mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) {
            // A read-only file system gives EROFS even for a directory that exists.
            struct stat info;
            const int refused = errno;
            if (stat(part.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return refused;
        }
        if (end == std::string::npos) return 0;
    }
}

namespace {

// A folder whose rights a script has taken cannot be emptied, but by root.
void openFolders(const std::filesystem::path& folder) {
    std::error_code ignored;
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ignored);
    for (std::filesystem::directory_iterator at(folder, ignored), end; !ignored && at != end;
         at.increment(ignored)) {
        if (at->symlink_status(ignored).type() == std::filesystem::file_type::directory)
            openFolders(at->path());
    }
}

}  // namespace

int emptyDirectory(const std::string& path) {
    std::error_code error;
    std::vector<std::filesystem::path> entries;
    for (std::filesystem::directory_iterator at(path, error), end; !error && at != end; at.increment(error))
        entries.push_back(at->path());
    for (const auto& entry : entries) {
        if (error) break;
        const bool isFolder =
            std::filesystem::symlink_status(entry, error).type() == std::filesystem::file_type::directory;
        if (isFolder) openFolders(entry);
        std::filesystem::remove_all(entry, error);
    }
    return error.value();
}

}  // namespace rovusim
