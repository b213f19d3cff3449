// A file descriptor that is closed on every exit path of its scope.
#pragma once

#include <unistd.h>
#include <utility>

namespace rovusim {

class Descriptor {
public:
    Descriptor() = default;
    /// Takes over `fd`, which may be negative: the result of a failed open.
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) reset(std::exchange(other.fd_, -1));
        return *this;
    }
    ~Descriptor() { reset(); }

    [[nodiscard]] bool isOpen() const { return fd_ >= 0; }

    /// The number, which stays this object's; negative while nothing is open.
    [[nodiscard]] int get() const { return fd_; }

    void reset(int fd = -1) {
        if (fd_ >= 0) close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

}  // namespace rovusim
