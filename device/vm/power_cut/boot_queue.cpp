#include "boot_queue.h"

#include "tally.h"

#include <algorithm>
#include <cstdio>
#include <set>
#include <thread>
#include <tuple>

namespace {

// The torn states of a write come before the state after it.
auto rank(const Cut& cut) {
    const int kind = cut.kind == CutKind::kTorn ? 0 : cut.kind == CutKind::kBetween ? 1 : 2;
    return std::make_tuple(cut.entry, kind, cut.detail);
}

struct IsEarlier {
    bool operator()(const Candidate& a, const Candidate& b) const { return rank(a.cut) < rank(b.cut); }
};
using Chosen = std::set<Candidate, IsEarlier>;

// The first, the last, and what lies evenly between.
void takeEvenly(const std::vector<Candidate>& from, size_t count, Chosen* to) {
    count = std::min(count, from.size());
    for (size_t i = 0; i < count; ++i)
        to->insert(from[count == 1 ? 0 : i * (from.size() - 1) / (count - 1)]);
}

}  // namespace

void Selection::add(const CutState& state, bool isSwitching, const Verdict& verdict) {
    const Candidate candidate = {state.cut, verdict};
    if (state.cut.kind == CutKind::kBetween && state.isDistinct)
        (isSwitching ? switching_ : before_).push_back(candidate);
    if (isSwitching && seen_.insert({state.cut.kind, verdict}).second) firsts_.push_back(candidate);
}

std::vector<Candidate> Selection::choose(size_t most, size_t spread) const {
    const bool isAll = most == SIZE_MAX;
    Chosen chosen;
    takeEvenly(before_, isAll ? spread : most / 5, &chosen);
    takeEvenly(firsts_, isAll ? firsts_.size() : most / 2, &chosen);
    takeEvenly(switching_, isAll ? switching_.size() : most - std::min(most, chosen.size()), &chosen);
    return {chosen.begin(), chosen.end()};
}

namespace {

bool isSame(const Cut& a, const Cut& b) {
    return a.kind == b.kind && a.entry == b.entry && a.detail == b.detail;
}

}  // namespace

BootQueue::BootQueue(const BootOptions& options, const ExpectedSets& sets, const std::vector<LogEntry>& log,
                     const std::vector<Candidate>& chosen)
    : options_(options), sets_(sets), log_(log), chosen_(chosen) {}

bool BootQueue::bootAll(const std::string& disk) {
    Replay(disk, log_).forEachState([this](const CutState& state) {
        if (started_ < chosen_.size() && isSame(chosen_[started_].cut, state.cut)) start(state);
    });
    while (!running_.empty())
        finishOldest();
    if (started_ != chosen_.size()) puts("FAULT: the replay did not come to a chosen state");
    const size_t survived = survivedOld_ + survivedNew_;
    printf("%zu of %zu devices survived and took the next update: %zu ran the old set, %zu the new one\n",
           survived, chosen_.size(), survivedOld_, survivedNew_);
    return survived == chosen_.size();
}

void BootQueue::start(const CutState& state) {
    // A device waits for half of its time.
    if (running_.size() > std::thread::hardware_concurrency()) finishOldest();
    const Candidate& candidate = chosen_[started_++];
    running_.push_back(std::async(std::launch::async, bootAndUpdate, std::cref(options_), std::cref(sets_),
                                  candidate.verdict, state.disk(), std::to_string(started_)));
}

void BootQueue::finishOldest() {
    const std::string fault = running_.front().get();
    running_.pop_front();
    const Candidate& candidate = chosen_[finished_++];
    const bool isOld = candidate.verdict.boots == Boots::kOld;
    if (fault.empty()) ++(isOld ? survivedOld_ : survivedNew_);
    printf("%4zu  %-72s %s set, reference files: %d%s%s\n", finished_,
           describeCut(candidate.cut, log_).c_str(), isOld ? "old" : "new", candidate.verdict.references,
           fault.empty() ? "" : "; FAULT: ", fault.c_str());
    fflush(stdout);
}
