#include "ubi_tools/ref_checksums.h"

#include "log_module.h"
#include "util/descriptor.h"
#include "util/file.h"
#include "util/fletcher32.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr char kPath1[] = "/app0/.ubiRefChk1";
constexpr char kPath2[] = "/app0/.ubiRefChk2";
constexpr char kMarker[] = "#FLET32:";
constexpr char kWhiteSpace[] = " \t\v\f\r";

// A file's contents, with room for a terminator; aligned, because they are summed as words.
struct RefContents {
    alignas(uint16_t) char bytes[2048];
    uint32_t length = 0;
};

__attribute__((format(printf, 2, 3))) bool appendLine(RefContents* contents, const char* format, ...) {
    const size_t room = sizeof contents->bytes - contents->length;
    va_list args;
    va_start(args, format);
    const int written = vsnprintf(contents->bytes + contents->length, room, format, args);
    va_end(args);
    if (written < 0 || static_cast<size_t>(written) >= room) return false;
    contents->length += static_cast<uint32_t>(written);
    return true;
}

// The byte after the lines must be zero: it is the padding of an odd number of bytes.
uint32_t checksum(const char* lines, size_t length) {
    zem::Fletcher32 sum;
    sum.add(reinterpret_cast<const uint16_t*>(lines), length + (length & 1));
    return sum.value();
}

void parseLines(RefChecksumList* list, char* lines) {
    char* restOfLines = nullptr;
    for (char* line = strtok_r(lines, "\n", &restOfLines); line != nullptr;
         line = strtok_r(nullptr, "\n", &restOfLines)) {
        char* restOfLine = nullptr;
        const char* md5 = strtok_r(line, kWhiteSpace, &restOfLine);
        const char* volume = md5 == nullptr ? nullptr : strtok_r(nullptr, kWhiteSpace, &restOfLine);
        if (volume != nullptr) list->emplace_back(volume, md5);
    }
}

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

void syncFolder(const std::string& folder) {
    const zem::Descriptor directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY));
    if (directory.isOpen()) fsync(directory.get());
}

// Makes the renames durable: the boot loader's variable, which is written next, reaches the flash at once, and must
// not get there before them. A file system that cannot sync a folder fails nothing.
void syncRenames(const std::string& path1, const std::string& path2) {
    const std::string folder1 = folderOf(path1);
    const std::string folder2 = folderOf(path2);
    syncFolder(folder1);
    if (folder2 != folder1) syncFolder(folder2);
}

// The replacement of the two files, as far as it has come.
struct RefFileSwap {
    struct File {
        explicit File(const std::string& path) : current(path), next(path + ".new"), backup(path + ".bak") {}

        std::string current;
        std::string next;
        std::string backup;
        bool nextExists = false;
        bool backedUp = false;
    };
    File first;
    File second;
    bool renameTried = false;

    RefFileSwap(const std::string& path1, const std::string& path2) : first(path1), second(path2) {}
};

int writeNext(const RefChecksumList& list, RefFileSwap::File* file) {
    const int rc = writeRefFile(list, file->next);
    if (rc != 0) LOG_MSG(LOG_LVL_ERROR, "Failed to write %s: %d", file->next.c_str(), rc);
    file->nextExists = rc == 0;
    return rc;
}

// A file that is not there yet has nothing to be backed up, and nothing to be put back.
int backUp(RefFileSwap::File* file) {
    if (rename(file->current.c_str(), file->backup.c_str()) == 0) {
        file->backedUp = true;
        return 0;
    }
    const int error = errno;
    if (error == ENOENT) return 0;
    LOG_MSG(LOG_LVL_ERROR, "Failed to rename to %s", file->backup.c_str());
    return error;
}

int putInPlace(RefFileSwap::File* file) {
    if (rename(file->next.c_str(), file->current.c_str()) != 0) {
        const int error = errno;
        LOG_MSG(LOG_LVL_ERROR, "Failed to rename from %s", file->next.c_str());
        return error;
    }
    file->nextExists = false;
    return 0;
}

void undo(const RefFileSwap::File& first, const RefFileSwap::File& second) {
    if (second.backedUp) rename(second.backup.c_str(), second.current.c_str());
    if (first.backedUp) rename(first.backup.c_str(), first.current.c_str());
    if (second.nextExists) remove(second.next.c_str());
    if (first.nextExists) remove(first.next.c_str());
}

int restoreFile(const char* path) {
    char backup[PATH_MAX];
    const int length = snprintf(backup, sizeof backup, "%s.bak", path);
    if (length < 0 || static_cast<size_t>(length) >= sizeof backup) return ENAMETOOLONG;
    return rename(backup, path) == 0 ? 0 : errno;
}

// The boot loader could not be switched, and the files must go back, with or without memory: nothing is allocated before
// they have.
int restoreFiles(const char* path1, const char* path2) {
    int result = 0;
    if (int rc = restoreFile(path1); rc != 0) result = rc;
    if (int rc = restoreFile(path2); rc != 0) result = rc;
    syncRenames(path1, path2);
    return result;
}

int carryOut(const RefChecksumList& list, RefFileSwap* swap) {
    if (int rc = writeNext(list, &swap->first); rc != 0) return rc;
    if (int rc = writeNext(list, &swap->second); rc != 0) return rc;
    swap->renameTried = true;
    if (int rc = backUp(&swap->first); rc != 0) return rc;
    if (int rc = backUp(&swap->second); rc != 0) return rc;
    // From here to the next rename neither file stands under its own name.
    if (int rc = putInPlace(&swap->first); rc != 0) return rc;
    return putInPlace(&swap->second);
}

}  // namespace

int loadRefChecksums(RefChecksumList* list) {
    list->clear();
    if (readRefFile(list, kPath1) == 0) return 0;
    return readRefFile(list, kPath2);
}

void setRefChecksum(RefChecksumList* list, const std::string& volume, const std::string& md5) {
    for (auto& entry : *list) {
        if (entry.first == volume) {
            entry.second = md5;
            return;
        }
    }
    list->emplace_back(volume, md5);
}

int storeRefChecksums(const RefChecksumList& list) {
    return updateRefFiles(list, kPath1, kPath2);
}

int restoreRefChecksums() {
    return restoreFiles(kPath1, kPath2);
}

int readRefFile(RefChecksumList* list, const std::string& path) {
    RefContents contents;
    if (int rc = readFile(path.c_str(), contents.bytes, sizeof contents.bytes - 1, &contents.length); rc != 0)
        return rc;
    contents.bytes[contents.length] = '\0';

    void* found = memmem(contents.bytes, contents.length, kMarker, sizeof kMarker - 1);
    if (found == nullptr) return EILSEQ;
    char* marker = static_cast<char*>(found);
    const char* digits = marker + sizeof kMarker - 1;
    char* end = nullptr;
    const unsigned long long expected = strtoull(digits, &end, 16);
    if (end == digits) return EILSEQ;

    *marker = '\0';
    const uint32_t sum = checksum(contents.bytes, static_cast<size_t>(marker - contents.bytes));
    if (sum != expected) {
        LOG_MSG(LOG_LVL_WARNING, "Inconsistent file %s, checksum should be 0x%08x", path.c_str(), sum);
        return EILSEQ;
    }
    list->clear();
    parseLines(list, contents.bytes);
    return 0;
}

int writeRefFile(const RefChecksumList& list, const std::string& path) {
    RefContents contents;
    contents.bytes[0] = '\0';
    for (const auto& entry : list) {
        if (!appendLine(&contents, "%s %s\n", entry.second.c_str(), entry.first.c_str())) return ENOBUFS;
    }
    const uint32_t sum = checksum(contents.bytes, contents.length);
    if (!appendLine(&contents, "%s%08x\n", kMarker, sum)) return ENOBUFS;

    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_DSYNC, 0644);
    if (fd < 0) {
        const int error = errno;
        LOG_MSG(LOG_LVL_ERROR, "Failed to open file \"%s\": %d", path.c_str(), error);
        return error;
    }
    const int rc = writeFd(fd, contents.bytes, contents.length, true, true);
    if (rc != 0) remove(path.c_str());
    return rc;
}

int updateRefFiles(const RefChecksumList& list, const std::string& path1, const std::string& path2) {
    if (path1 == path2) return EINVAL;
    RefFileSwap swap(path1, path2);
    const int rc = carryOut(list, &swap);
    if (rc != 0) undo(swap.first, swap.second);
    if (swap.renameTried) syncRenames(path1, path2);
    return rc;
}

int restoreRefFiles(const std::string& path1, const std::string& path2) {
    return restoreFiles(path1.c_str(), path2.c_str());
}
