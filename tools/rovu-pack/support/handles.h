// Owners of what the system and libraries hand out, each released on every exit path.

#pragma once

#include <cstdio>
#include <memory>
#include <unistd.h>
#include <utility>

/// Calls `release` in place of delete.
template <auto release>
struct Releaser {
    template <typename Resource>
    void operator()(Resource* resource) const {
        release(resource);
    }
};

template <typename Resource, auto release>
using Handle = std::unique_ptr<Resource, Releaser<release>>;

using File = Handle<FILE, fclose>;

/// A file descriptor; negative: none.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    ~Descriptor() {
        if (fd_ >= 0) close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;

    int get() const { return fd_; }

private:
    int fd_;
};
