// A file descriptor that is closed on every way out of its scope.
#pragma once

#include <unistd.h>

namespace rovusim {

struct Descriptor {
    int fd = -1;

    Descriptor() = default;
    explicit Descriptor(int opened) : fd(opened) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor(Descriptor&& other) noexcept : fd(other.fd) { other.fd = -1; }
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            reset();
            fd = other.fd;
            other.fd = -1;
        }
        return *this;
    }
    ~Descriptor() { reset(); }

    void reset() {
        if (fd >= 0) close(fd);
        fd = -1;
    }
};

}  // namespace rovusim
