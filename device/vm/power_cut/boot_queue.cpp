#include "boot_queue.h"

#include "tally.h"

#include <cstdio>
#include <stdexcept>
#include <thread>

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
    if (started_ != chosen_.size()) throw std::runtime_error("the replay did not come to a chosen state");
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
