// A flash has no cache: its writes, and those of the environment, arrive in their order. A disk may keep back any
// write until a flush.

#include "recording/replay.h"

#include "disk.h"

#include <stdexcept>

namespace {

constexpr size_t kSectorSize = 512;  // bytes, which a disk writes as a whole

}  // namespace

std::string CutState::app0() const {
    if (cut.kind == CutKind::kDropped) return replay_->app0Without(cut.detail);
    return prefix->substr(kApp0.offset, kApp0.size);
}

std::string CutState::disk() const {
    std::string whole = *prefix;
    if (cut.kind == CutKind::kDropped) whole.replace(kApp0.offset, kApp0.size, app0());
    return whole;
}

Replay::Replay(std::string disk, const std::vector<LogEntry>& log)
    : disk_(std::move(disk)), log_(log), flushedApp0_(disk_, kApp0.offset, kApp0.size) {
    if (disk_.size() != kDiskSize) throw std::runtime_error("the disk has another size");
}

void Replay::forEachState(const Visitor& visit) {
    for (size_t number = 0; number < log_.size(); ++number) {
        const LogEntry& entry = log_[number];
        if (entry.flushes) {
            flushedApp0_.assign(disk_, kApp0.offset, kApp0.size);
            unflushed_.clear();
        }
        if (entry.range.size == 0) continue;
        if (entry.range.offset > disk_.size() || disk_.size() - entry.range.offset < entry.range.size)
            throw std::runtime_error("write log: a write beyond the disk");
        const bool isNew = disk_.compare(entry.range.offset, entry.range.size, entry.data) != 0;
        tear(entry, number, visit);
        disk_.replace(entry.range.offset, entry.range.size, entry.data);
        isDistinct_ = isNew;
        const bool isApp0 = overlap(entry.range, kApp0);
        if (isApp0) lastApp0Entry_ = number;
        show({CutKind::kBetween, number, 0}, entry.range, {CutKind::kBetween, lastApp0Entry_, 0}, visit);
        if (isApp0) unflushed_.push_back(number);
        drop(number, visit);
        // Durable at once, but only what it wrote itself: the states above are those of a cut before its end.
        if (isApp0 && entry.isDurable) {
            unflushed_.pop_back();
            flushedApp0_.replace(entry.range.offset - kApp0.offset, entry.range.size, entry.data);
        }
    }
}

void Replay::tear(const LogEntry& entry, size_t number, const Visitor& visit) {
    const bool isApp0 = overlap(entry.range, kApp0);
    for (size_t at = kSectorSize; at < entry.range.size; at += kSectorSize) {
        const ByteRange sector = {entry.range.offset + at - kSectorSize, kSectorSize};
        disk_.replace(sector.offset, sector.size, entry.data.substr(at - kSectorSize, kSectorSize));
        const CutState::App0Name name = isApp0 ? CutState::App0Name(CutKind::kTorn, number, at)
                                               : CutState::App0Name(CutKind::kBetween, lastApp0Entry_, 0);
        show({CutKind::kTorn, number, at}, sector, name, visit);
    }
}

void Replay::drop(size_t number, const Visitor& visit) const {
    if (unflushed_.empty()) return;
    for (const size_t lost : unflushed_) {
        // Without the last write it is the state before that.
        if (lost == number) continue;
        show({CutKind::kDropped, number, lost}, {}, {CutKind::kDropped, lastApp0Entry_, lost}, visit);
    }
    show({CutKind::kDropped, number, Cut::kAll}, {}, {CutKind::kDropped, lastApp0Entry_, Cut::kAll}, visit);
}

void Replay::show(const Cut& cut, const ByteRange& changed, CutState::App0Name name,
                  const Visitor& visit) const {
    CutState state;
    state.cut = cut;
    state.prefix = &disk_;
    state.changed = cut.kind == CutKind::kDropped ? ByteRange{0, 0} : changed;
    state.isDistinct = isDistinct_;
    state.app0Name = name;
    state.replay_ = this;
    visit(state);
}

std::string Replay::app0Without(size_t entry) const {
    std::string app0 = flushedApp0_;
    if (entry == Cut::kAll) return app0;
    for (const size_t number : unflushed_) {
        if (number == entry) continue;
        const LogEntry& kept = log_[number];
        app0.replace(kept.range.offset - kApp0.offset, kept.range.size, kept.data);
    }
    return app0;
}
