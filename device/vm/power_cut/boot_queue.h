// Boots the chosen states of a replay, one more at a time than there are processors.

#pragma once

#include "selection.h"
#include "vm_boot.h"

#include <cstddef>
#include <deque>
#include <future>
#include <string>
#include <vector>

class BootQueue {
public:
    /// All must outlive it. \param chosen in the order of the replay.
    BootQueue(const BootOptions& options, const ExpectedSets& sets, const std::vector<LogEntry>& log,
              const std::vector<Candidate>& chosen);

    /// Replays the log on `disk` and boots the chosen states. Prints a line for each and a summary.
    /// \return whether all devices survived. Throws std::runtime_error as bootAndUpdate() does.
    bool bootAll(const std::string& disk);

private:
    void start(const CutState& state);
    void finishOldest();

    const BootOptions& options_;
    const ExpectedSets& sets_;
    const std::vector<LogEntry>& log_;
    const std::vector<Candidate>& chosen_;
    size_t started_ = 0;
    size_t finished_ = 0;
    size_t survivedOld_ = 0;  // and ran the old set
    size_t survivedNew_ = 0;
    std::deque<std::future<std::string>> running_;  // the faults, in the order of the start
};
