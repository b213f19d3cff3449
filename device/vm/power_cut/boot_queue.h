// Selects the states of a replay to boot.
//
// Boots the chosen states of a replay, one more at a time than there are processors.

#pragma once

#include "verdict/judge.h"
#include "vm_boot.h"

#include <cstddef>
#include <deque>
#include <future>
#include <set>
#include <string>
#include <vector>

struct Candidate {
    Cut cut;
    Verdict verdict;
};

/// Takes every state of the replay, and keeps those that a boot may be spent on: each distinct state between two writes,
/// and, after the switching of the volumes began, the first of each kind and verdict.
class Selection {
public:
    void add(const CutState& state, bool isSwitching, const Verdict& verdict);

    /// \param most about how many; SIZE_MAX for all of the switching, and `spread` of those before it. If it is not all,
    ///        a fifth is from before, and half are the first ones of their kinds and verdicts.
    /// \return in the order of the log.
    [[nodiscard]] std::vector<Candidate> choose(size_t most, size_t spread) const;

private:
    std::vector<Candidate> before_;
    std::vector<Candidate> switching_;
    std::vector<Candidate> firsts_;
    std::set<std::pair<CutKind, Verdict>> seen_;
};

class BootQueue {
public:
    /// All must outlive it. \param chosen in the order of the replay.
    BootQueue(const BootOptions& options, const ExpectedSets& sets, const std::vector<LogEntry>& log,
              const std::vector<Candidate>& chosen);

    /// Replays the log on `disk` and boots the chosen states. Prints a line for each and a summary.
    /// \return whether all devices survived.
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
