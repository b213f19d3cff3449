// Shows an update's progress while it runs: a line for each state that the progress file enters.
#pragma once

#include "rovu_sim/descriptor.h"

#include <cstdint>
#include <string>

namespace rovusim {

struct Watch {
    Descriptor changes;  // readable when the progress file may have changed
    std::string path;
    bool terminal = false;  // draws bars that grow; else prints plain lines
    int64_t started = 0;    // milliseconds of the monotonic clock
    int64_t entered = 0;    // the same, of the state that stands
    std::string state;      // the state that stands; empty before the first
    int attempts = 0;
    int percent = 0;
};

/// Looks at the device's progress file from now on; what an earlier run left there is not shown.
/// \return 0, or a positive errno value after a message.
int startWatch(const std::string& stateDir, Watch* watch);

/// Takes in what changed; to be used when `changes` is readable.
void followProgress(Watch* watch);

/// Draws the line of the current state anew, for the time that it shows; nothing if plain.
void redrawWatch(const Watch& watch);

/// Draws the last line for good.
void finishWatch(Watch* watch);

}  // namespace rovusim
