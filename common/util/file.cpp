#include "util/file.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

std::string& appendPath(std::string& path, const std::string& name) {
    path.reserve(path.size() + name.size() + 1);
    path += '/';
    path += name;
    return path;
}

std::string& appendPath(std::string& path, const char* name, size_t length) {
    return appendPath(path, std::string(name, length));
}

void trimTrailingSpace(char* string) {
    char* end = string + strlen(string);
    while (end != string && isspace(static_cast<unsigned char>(end[-1])) != 0) {
        --end;
        *end = '\0';
    }
}

int readFile(const char* path, void* buffer, uint32_t capacity, uint32_t* got) {
    const int fd = open(path, O_RDONLY);
    if (fd < 0) return errno;

    char* next = static_cast<char*>(buffer);
    uint32_t count = 0;
    do {
        const ssize_t step = read(fd, next + count, capacity - count);
        if (step == 0) break;
        if (step < 0) {
            const int error = errno;
            if (error == EINTR) continue;
            close(fd);
            return error;
        }
        count += static_cast<uint32_t>(step);
    } while (count < capacity);

    if (close(fd) != 0) return errno;
    if (got != nullptr) *got = count;
    return 0;
}

int writeFd(int fd, const void* data, uint32_t size, bool doClose, bool doSync) {
    int result = 0;
    const char* next = static_cast<const char*>(data);
    uint32_t left = size;
    do {
        const ssize_t step = write(fd, next, left);
        if (step < 0) {
            const int error = errno;
            if (error == EINTR) continue;
            result = error;
            break;
        }
        next += step;
        left -= static_cast<uint32_t>(step);
    } while (left > 0);
    if (doSync && fsync(fd) != 0) result = errno;
    if (doClose && close(fd) != 0) result = errno;
    return result;
}
