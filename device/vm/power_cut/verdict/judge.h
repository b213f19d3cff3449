// Which set a device boots after a power cut, judged by the contents of its disk.

#pragma once

#include "recording/replay.h"
#include "verdict/app0_reader.h"
#include "verdict/flash_reader.h"

#include <map>
#include <string>

enum class Boots { kOld, kNew, kNeither };

struct Verdict {
    Boots boots = Boots::kNeither;
    int references = 0;  // readable reference files under their own names
    std::string fault;   // empty if nothing is wrong

    bool operator<(const Verdict& other) const;
};

class Judge {
public:
    /// `sets` and `app0` must outlive it.
    Judge(const ExpectedSets& sets, App0Reader* app0, const std::string& disk);

    /// Judges the states of a replay, every one of them and in their order.
    Verdict judge(const CutState& state);

    /// Judges the disk it was made with.
    Verdict judge(const std::string& disk);

private:
    void readEnvironment(const std::string& disk);
    Verdict combine(const std::string& disk, const App0& app0);
    void judgeReferences(const App0& app0, const ExpectedSet& set, Verdict* verdict) const;

    const ExpectedSets& sets_;
    App0Reader* app0_;
    FlashReader flash_;
    std::string bootswitcher_;  // empty if the environment is unreadable
    std::map<CutState::App0Name, const App0*> named_;
};

/// Whether a state is the gap of the transaction on the reference files: neither stands under its own name, but all
/// that is needed for a record is there in full.
bool isGap(const App0& app0);
