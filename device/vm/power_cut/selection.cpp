#include "selection.h"

#include <algorithm>
#include <tuple>

namespace {

// The first, the last, and what lies evenly between.
void takeEvenly(const std::vector<Candidate>& from, size_t count, std::vector<Candidate>* to) {
    count = std::min(count, from.size());
    for (size_t i = 0; i < count; ++i)
        to->push_back(from[count == 1 ? 0 : i * (from.size() - 1) / (count - 1)]);
}

bool isEarlier(const Candidate& a, const Candidate& b) {
    // The torn states of a write come before the state after it.
    const auto rank = [](const Cut& cut) {
        const int kind = cut.kind == CutKind::kTorn ? 0 : cut.kind == CutKind::kBetween ? 1 : 2;
        return std::make_tuple(cut.entry, kind, cut.detail);
    };
    return rank(a.cut) < rank(b.cut);
}

}  // namespace

void Selection::add(const CutState& state, bool isSwitching, const Verdict& verdict) {
    if (state.cut.kind == CutKind::kBetween) {
        if (state.isDistinct) (isSwitching ? switching_ : before_).push_back({state.cut, verdict});
    } else if (isSwitching && seen_.insert({state.cut.kind, verdict}).second) {
        losses_.push_back({state.cut, verdict});
    }
}

std::vector<Candidate> Selection::choose(size_t most, size_t spread) const {
    std::vector<Candidate> chosen;
    if (most == SIZE_MAX) {
        chosen = switching_;
        chosen.insert(chosen.end(), losses_.begin(), losses_.end());
        takeEvenly(before_, spread, &chosen);
    } else {
        takeEvenly(before_, most / 5, &chosen);
        takeEvenly(losses_, most / 5, &chosen);
        takeEvenly(switching_, most - chosen.size(), &chosen);
    }
    std::sort(chosen.begin(), chosen.end(), isEarlier);
    return chosen;
}
