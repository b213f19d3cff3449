// The calls that the linker routes here, by the names that it gives them.

#include "unit_test.h"

#include <algorithm>
#include <cstdarg>
#include <fcntl.h>
#include <filesystem>

Interposed interposed;

namespace {

void trace(const std::string& call) {
    if (interposed.tracesFiles) interposed.fileCalls.push_back(call);
}

void traceDescriptor(const std::string& call, int fd) {
    if (!interposed.tracesFiles) return;
    std::error_code noLink;
    const std::string path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), noLink);
    trace(call + " " + path);
}

}  // namespace

extern "C" {

FILE* __real_popen(const char* command, const char* mode);
int __real_rename(const char* from, const char* to);
int __real_fsync(int fd);
int __real_close(int fd);
ssize_t __real_read(int fd, void* buffer, size_t size);
ssize_t __real_write(int fd, const void* data, size_t size);
CURL* __real_curl_easy_init();
CURLcode __real_curl_easy_setopt(CURL* handle, CURLoption option, ...);
CURLcode __real_curl_easy_perform(CURL* handle);
void __real_curl_easy_cleanup(CURL* handle);

FILE* __wrap_popen(const char* command, const char* mode) {
    const char* line = interposed.shellLine == nullptr ? command : interposed.shellLine;
    return *line == '\0' ? nullptr : __real_popen(line, mode);
}

int __wrap_rename(const char* from, const char* to) {
    trace("rename "s + from + " " + to);
    if (interposed.refusedRename == 0 || --interposed.refusedRename != 0) return __real_rename(from, to);
    errno = EIO;
    return -1;
}

int __wrap_fsync(int fd) {
    traceDescriptor("fsync", fd);
    return __real_fsync(fd);
}

int __wrap_close(int fd) {
    const int rc = __real_close(fd);
    if (interposed.refusesClose) errno = EIO;
    return interposed.refusesClose ? -1 : rc;
}

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
    if (interposed.interruptions == 0) return __real_read(fd, buffer, std::min(size, interposed.mostBytes));
    errno = EINTR;
    return interposed.interruptions-- == 0 ? 0 : -1;
}

ssize_t __wrap_write(int fd, const void* data, size_t size) {
    traceDescriptor((fcntl(fd, F_GETFL) & O_DSYNC) != 0 ? "write-through" : "write", fd);
    if (interposed.interruptions == 0) return __real_write(fd, data, std::min(size, interposed.mostBytes));
    errno = EINTR;
    return interposed.interruptions-- == 0 ? 0 : -1;
}

unsigned int __wrap_sleep(unsigned int seconds) {
    interposed.waits.push_back(seconds);
    return 0;
}

int __wrap_clock_gettime(clockid_t, timespec* now) {
    *now = interposed.now;
    return 0;
}

int __wrap___clock_gettime64(clockid_t clock, timespec* now) {
    return __wrap_clock_gettime(clock, now);
}

time_t __wrap_time(time_t*) {
    return interposed.now.tv_sec;
}

time_t __wrap___time64(time_t*) {
    return interposed.now.tv_sec;
}

CURL* __wrap_curl_easy_init() {
    ++interposed.handlesMade;
    return __real_curl_easy_init();
}

CURLcode __wrap_curl_easy_setopt(CURL* handle, int number, ...) {
    va_list args;
    va_start(args, number);
    const bool isLong = number < CURLOPTTYPE_OBJECTPOINT;
    const long value = isLong ? va_arg(args, long) : 0;
    void* pointer = isLong ? nullptr : va_arg(args, void*);
    va_end(args);
    const CURLoption option = static_cast<CURLoption>(number);
    if (!isLong) return __real_curl_easy_setopt(handle, option, pointer);
    interposed.numbers.emplace_back(number, value);
    return __real_curl_easy_setopt(handle, option, value);
}

CURLcode __wrap_curl_easy_perform(CURL* handle) {
    CURLcode code = __real_curl_easy_perform(handle);
    interposed.now = {interposed.now.tv_sec + interposed.transferSeconds, 0};
    if (interposed.outcomes.empty()) return code;
    code = interposed.outcomes.front();
    interposed.outcomes.pop_front();
    return code;
}

void __wrap_curl_easy_cleanup(CURL* handle) {
    ++interposed.handlesReleased;
    __real_curl_easy_cleanup(handle);
}

}  // extern "C"
