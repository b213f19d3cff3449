// Preloaded into the program, and into the commands that it starts, on which it has no effect: after as many allocations
// as ROVU_ALLOCATIONS says, all others fail.

#include <cerrno>
#include <cstdlib>
#include <cstring>

extern "C" {
// NOLINTBEGIN(readability-identifier-naming): names of the C library
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* old, size_t size);
// NOLINTEND(readability-identifier-naming)
}

namespace {

bool counts = false;
unsigned long left = 0;

__attribute__((constructor)) void start() {
    const char* allocations = getenv("ROVU_ALLOCATIONS");
    counts = allocations != nullptr && strcmp(program_invocation_short_name, "rovu") == 0;
    if (counts) left = strtoul(allocations, nullptr, 10);
}

bool fails() {
    if (!counts || (left != 0 && left-- != 0)) return false;
    errno = ENOMEM;
    return true;
}

}  // namespace

extern "C" {

void* malloc(size_t size) {
    return fails() ? nullptr : __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    return fails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* old, size_t size) {
    return fails() ? nullptr : __libc_realloc(old, size);
}
}
