// Preloaded into U-Boot: a power cut in the middle of a chosen write to the disk.
//
//     ROVU_CUT_WRITE=N     the N-th write to a file stores the first half of its bytes, and the program ends with 99
//
// Besides its standard output, U-Boot writes no other file before it has loaded a kernel.

#include <cstddef>
#include <cstdlib>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int kCutStatus = 99;

bool isFlash(int number) {
    struct stat status;
    return number > STDERR_FILENO && fstat(number, &status) == 0 && S_ISREG(status.st_mode);
}

bool isCut() {
    static long left = 0;
    if (left == 0) {
        const char* chosen = getenv("ROVU_CUT_WRITE");
        left = chosen == nullptr ? -1 : strtol(chosen, nullptr, 10);
    }
    return left > 0 && --left == 0;
}

}  // namespace

extern "C" ssize_t write(int number, const void* bytes, size_t size) {
    if (isFlash(number) && isCut()) {
        syscall(SYS_write, number, bytes, size / 2);
        _exit(kCutStatus);
    }
    return syscall(SYS_write, number, bytes, size);
}
