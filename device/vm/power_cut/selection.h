// Which states of a replay are worth a boot.

#pragma once

#include "verdict/judge.h"

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
