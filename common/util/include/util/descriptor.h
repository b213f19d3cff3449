// The owner of an open file descriptor.

#pragma once

#include <unistd.h>
#include <utility>

/// Closes its descriptor, if it has one, at the end of its scope. The result of that close is lost: where it matters,
/// release() the descriptor and close it by hand.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    ~Descriptor() { reset(); }

    bool isOpen() const { return fd_ >= 0; }
    int get() const { return fd_; }

    /// Hands the descriptor to the caller, who closes it.
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }

    /// Closes the descriptor, if there is one, and takes over `fd`.
    void reset(int fd = -1) {
        if (fd_ >= 0) close(fd_);
        fd_ = fd;
    }

private:
    int fd_;
};
