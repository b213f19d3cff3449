// Owners of what the system and libraries hand out, each released on every exit path.

#pragma once

#include <cstdio>
#include <memory>

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
