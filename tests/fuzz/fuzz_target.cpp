#include "fuzz_target.h"

#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

void require(bool holds, const char* property) {
    if (holds) return;
    fprintf(stderr, "Does not hold: %s\n", property);
    abort();
}

MemoryFile::MemoryFile()
    : fd_(memfd_create("input", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(fd_)) {
    require(fd_ >= 0, "a file in memory can be made");
}

MemoryFile::~MemoryFile() {
    close(fd_);
}

void MemoryFile::fill(const void* bytes, size_t size) {
    require(ftruncate(fd_, 0) == 0, "a file in memory can be emptied");
    require(pwrite(fd_, bytes, size, 0) == static_cast<ssize_t>(size), "a file in memory can be filled");
}
