// Preloaded into the program: lets chosen allocations fail, or tells which allocations the program makes.
//
// It acts only in the process that executes the program, which the environment names. Commands that the program starts
// inherit the preload, and there it hands each call on. It allocates nothing itself.
//
//     ROVU_ALLOCATIONS_OF=PROGRAM      what it acts in; a path as executed
//     ROVU_FAIL_ALLOCATION=N or N+     the N-th allocation fails, or all from the N-th on
//     ROVU_FAILED_ALLOCATION=FILE      created when an allocation fails
//     ROVU_ALLOCATION_LIST=FILE        one line for each allocation: its number and a hash of its call stack, which two
//                                      allocations of one process share if they are made by the same code

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>
#include <unwind.h>

extern "C" {

// NOLINTBEGIN(readability-identifier-naming): names of the C library
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* old, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
// NOLINTEND(readability-identifier-naming)
}

namespace {

constexpr int kListNumber = 251;  // a descriptor that the program does not use

bool active = false;
bool lasting = false;
unsigned long failing = 0;  // number of the allocation; 0 is none
unsigned long made = 0;
const char* failedFile = nullptr;
int list = -1;
thread_local bool unwinding = false;

_Unwind_Reason_Code addFrame(_Unwind_Context* context, void* hash) {
    uint64_t& value = *static_cast<uint64_t*>(hash);
    value = (value ^ _Unwind_GetIP(context)) * 1099511628211U;  // FNV-1a
    return _URC_NO_REASON;
}

void note(unsigned long number) {
    if (list < 0 || unwinding) return;
    unwinding = true;
    uint64_t hash = 14695981039346656037U;
    _Unwind_Backtrace(addFrame, &hash);
    char line[64];
    const int length =
        snprintf(line, sizeof line, "%lu %016llx\n", number, static_cast<unsigned long long>(hash));
    if (write(list, line, static_cast<size_t>(length)) != length) _exit(99);
    unwinding = false;
}

void noteFailure() {
    if (failedFile == nullptr) return;
    close(open(failedFile, O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    failedFile = nullptr;
}

// True if this allocation is to fail. errno is unchanged otherwise.
bool fails() {
    if (!active || unwinding) return false;
    const unsigned long number = __atomic_add_fetch(&made, 1, __ATOMIC_RELAXED);
    const int before = errno;
    note(number);
    const bool chosen = failing != 0 && (number == failing || (lasting && number > failing));
    if (chosen) noteFailure();
    errno = chosen ? ENOMEM : before;
    return chosen;
}

__attribute__((constructor)) void start() {
    const char* program = getenv("ROVU_ALLOCATIONS_OF");
    const char* executed = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    if (program == nullptr || executed == nullptr || strcmp(program, executed) != 0) return;
    if (const char* rule = getenv("ROVU_FAIL_ALLOCATION"); rule != nullptr) {
        failing = strtoul(rule, nullptr, 10);
        lasting = strchr(rule, '+') != nullptr;
    }
    failedFile = getenv("ROVU_FAILED_ALLOCATION");
    if (const char* file = getenv("ROVU_ALLOCATION_LIST"); file != nullptr) {
        const int fd = open(file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        list = fcntl(fd, F_DUPFD_CLOEXEC, kListNumber);
        close(fd);
        if (list < 0) _exit(99);
    }
    active = true;
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

void* memalign(size_t alignment, size_t size) {
    return fails() ? nullptr : __libc_memalign(alignment, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void** result, size_t alignment, size_t size) {
    void* block = memalign(alignment, size);
    if (block == nullptr) return ENOMEM;
    *result = block;
    return 0;
}
}
