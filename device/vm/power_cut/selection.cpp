#include "selection.h"

#include <algorithm>
#include <set>
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
