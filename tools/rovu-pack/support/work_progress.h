// How long work reports how far it has come.

#pragma once

#include <cstdint>
#include <functional>

/// Called with the bytes that were dealt with since the last call. May be empty, as may a pointer to one be
/// null.
using WorkProgress = std::function<void(uint64_t)>;

inline void reportWork(WorkProgress* report, uint64_t bytes) {
    if (report != nullptr && *report) (*report)(bytes);
}
