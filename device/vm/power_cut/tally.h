// Counts the states by the set that they boot, and shows the faults.

#pragma once

#include "verdict/judge.h"

#include <map>
#include <string>
#include <vector>

/// Where a cut came, for people.
std::string describeCut(const Cut& cut, const std::vector<LogEntry>& log);

class Tally {
public:
    /// \param isSwitching whether the cut came after state "switching volume" had begun to write.
    void add(const Cut& cut, bool isSwitching, const Verdict& verdict, const std::string& place);

    /// Prints the table, and each kind of fault with its first place.
    void print() const;

    [[nodiscard]] bool hasFaults() const { return !faults_.empty(); }

private:
    struct Row {
        size_t states = 0;
        size_t old = 0, next = 0, neither = 0;
        size_t references[3] = {};  // by how many are readable
        size_t faults = 0;
    };
    struct Fault {
        size_t states = 0;
        std::string first;
    };

    std::map<std::pair<bool, CutKind>, Row> rows_;
    std::map<std::string, Fault> faults_;
};
