// The owner of an open file descriptor.

#pragma once

#include <unistd.h>
#include <utility>

namespace zem {

/// Closes its descriptor, if it has one, at the end of its scope. The result of that close is lost: where it matters,
/// release() the descriptor and close it by hand.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : fd(number) {}
    Descriptor(Descriptor&& other) noexcept : fd(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    ~Descriptor() { reset(); }

    bool isOpen() const { return fd >= 0; }
    int get() const { return fd; }

    /// Hands the descriptor to the caller, who closes it.
    [[nodiscard]] int release() { return std::exchange(fd, -1); }

    /// Closes the descriptor, if there is one, and takes over `number`.
    void reset(int number = -1) {
        if (fd >= 0) close(fd);
        fd = number;
    }

private:
    int fd;
};

}  // namespace zem
