// Shows an update's progress while it runs: one line for each state that the progress file enters.
#pragma once

#include "util/descriptor.h"

#include <cstdint>
#include <string>

namespace rovusim {

struct Watch {
    zem::Descriptor changes;  // readable when the progress file may have changed
    std::string path;
    bool terminal = false;  // draws growing bars; else prints plain lines
    int64_t started = 0;    // milliseconds of the monotonic clock
    int64_t entered = 0;    // when the current state began, on the same clock
    std::string state;      // the current state; empty before the first
    int attempts = 0;
    int percent = 0;
};

/// Watches the progress file in the device's /tmp, which this process knows as `tmp`, from now on; what an earlier run
/// left there is not shown.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int startWatch(const std::string& tmp, Watch* watch);

/// Reads the progress file again; to be called when `changes` is readable.
void followProgress(Watch* watch);

/// Draws the line of the current state again, with the time elapsed; nothing if not on a terminal.
void redrawWatch(const Watch& watch);

/// Draws the last line and ends it.
void finishWatch(Watch* watch);

}  // namespace rovusim
