// How long work reports how far it has come, and the bar on a terminal that shows it: redrawn ten times a second at most,
// on one line that it erases afterwards.

#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>

/// Called with the bytes that were dealt with since the last call. May be empty, as may a pointer to one be
/// null.
using WorkProgress = std::function<void(uint64_t)>;

inline void reportWork(WorkProgress* report, uint64_t bytes) {
    if (report != nullptr && *report) (*report)(bytes);
}

/// Draws on standard output, and only if that is a terminal. Short work shows nothing.
class ProgressBar {
public:
    ProgressBar();
    /// Wipes the bar.
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// Sets the bytes of all the work together.
    void expect(uint64_t bytes);
    /// Says what is being done.
    void begin(const std::string& what);
    /// For the work itself; valid as long as the bar.
    WorkProgress* progress() { return &sink_; }

private:
    void advance(uint64_t bytes);
    void draw();

    bool visible_;
    bool drawn_ = false;
    uint64_t total_ = 0;
    uint64_t done_ = 0;
    struct timespec last_ = {};
    std::string label_;
    WorkProgress sink_;
};
