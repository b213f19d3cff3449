// The system calls themselves: opendir() would allocate.

#include "util/remove_tree.h"

#include "util/descriptor.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// An entry as getdents64() gives it: of variable length, the name in its place with a terminator.
struct DirectoryEntry {
    uint64_t inode;
    int64_t offset;
    uint16_t length;
    uint8_t type;
    char name[1];
};

constexpr size_t kBufferSize = 1024;

bool isSelfOrParent(const char* name) {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

int removeFolder(int parent, const char* name);

// unlinkat() says EISDIR of a folder on Linux, and EPERM where it keeps to POSIX.
int removeEntry(int folder, const char* name) {
    if (unlinkat(folder, name, 0) == 0) return 0;
    return errno == EISDIR || errno == EPERM ? removeFolder(folder, name) : errno;
}

// Removes what one reading of the folder names. Returns the number of entries that are gone, and the last failure.
int removeEntries(int folder, int* error) {
    alignas(DirectoryEntry) char buffer[kBufferSize];
    int removed = 0;
    for (;;) {
        const long got = syscall(SYS_getdents64, folder, buffer, sizeof buffer);
        if (got < 0) *error = errno;
        if (got <= 0) return removed;
        for (long position = 0; position < got;) {
            const DirectoryEntry* entry = reinterpret_cast<const DirectoryEntry*>(buffer + position);
            position += entry->length;
            if (isSelfOrParent(entry->name)) continue;
            if (int rc = removeEntry(folder, entry->name); rc != 0) {
                *error = rc;
            } else {
                ++removed;
            }
        }
    }
}

int removeFolder(int parent, const char* name) {
    const zem::Descriptor folder(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder.isOpen()) return errno;
    // A reading may pass over entries while others are removed: it is repeated until there is nothing to remove.
    int error = 0;
    do {
        error = 0;
        lseek(folder.get(), 0, SEEK_SET);
    } while (removeEntries(folder.get(), &error) > 0);
    if (unlinkat(parent, name, AT_REMOVEDIR) != 0) return error != 0 ? error : errno;
    return 0;
}

}  // namespace

int removeTree(const char* path) {
    return removeFolder(AT_FDCWD, path);
}
