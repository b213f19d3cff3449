// system() and popen() differ in the child's standard output only; both wait statuses are decoded alike.

#include "util/command.h"

#include "log_module.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr size_t kLineSize = 256;
constexpr int kNoWaitStatus = -1;

int32_t failure() {
    return errno == 0 ? -1 : -errno;
}

// The low seven bits name the signal that ended the command, or are all set if it was only stopped.
int decodeWaitStatus(int waitStatus) {
    return (waitStatus & 0x7F) == 0 ? (waitStatus & 0xFF00) >> 8 : -1;
}

// Returns the wait status, or kNoWaitStatus; `*got` counts the bytes in `out`.
int runCaptured(const char* command, char* out, uint32_t outSize, int* eof, size_t* got) {
    out[0] = '\0';
    FILE* stream = popen(command, "r");
    if (stream == nullptr) return kNoWaitStatus;
    *got = fread(out, 1, outSize - 1, stream);
    if (eof != nullptr) *eof = feof(stream);
    const int waitStatus = pclose(stream);
    if (waitStatus != kNoWaitStatus) out[*got] = '\0';
    return waitStatus;
}

__attribute__((format(printf, 5, 0))) int32_t formatAndRun(char* out, uint32_t outSize, int* exitStatus,
                                                           int* eof, const char* format, va_list args) {
    char line[kLineSize];
    const int length = vsnprintf(line, sizeof line, format, args);
    // Taken as unsigned, the negative result of a failed vsnprintf is too long as well.
    if (static_cast<unsigned int>(length) >= sizeof line) {
        LOG_MSG(LOG_LVL_ERROR, "Command exceeds buffer size");
        return EOVERFLOW;
    }
    return runCommand(line, out, outSize, exitStatus, eof);
}

}  // namespace

int32_t runCommand(const char* command, char* out, uint32_t outSize, int* exitStatus, int* eof) {
    errno = 0;
    LOG_MSG(LOG_LVL_DEBUG, "Running shell command: %s", command);
    size_t got = 0;
    const int waitStatus = outSize == 0 ? system(command) : runCaptured(command, out, outSize, eof, &got);
    if (waitStatus == kNoWaitStatus) return failure();

    const int status = decodeWaitStatus(waitStatus);
    LOG_MSG(LOG_LVL_DEBUG, "Command finished with exit status %u", static_cast<unsigned int>(status));
    if (exitStatus != nullptr) *exitStatus = status;
    return static_cast<int32_t>(got);
}

int32_t runCommandF(char* out, uint32_t outSize, int* exitStatus, int* eof, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t result = formatAndRun(out, outSize, exitStatus, eof, format, args);
    va_end(args);
    return result;
}

int runStep(const char* format, ...) {
    int exitStatus = 0;
    va_list args;
    va_start(args, format);
    const int32_t ran = formatAndRun(nullptr, 0, &exitStatus, nullptr, format, args);
    va_end(args);
    return ran != 0 ? -ran : exitStatus;
}
