// A sector for the superblock; then for each entry a sector for its header, and its data in whole sectors.
//
// A flash has no cache: its writes, and those of the environment, arrive in their order. A disk may keep back any
// write until a flush.

#include "recording/replay.h"

#include <cerrno>

namespace {

constexpr uint64_t kMagic = 0x6A736677736872;
constexpr uint64_t kVersion = 1;
constexpr size_t kSuperblockSize = 28;
constexpr size_t kHeaderSize = 32;
constexpr uint64_t kFlush = 1;
constexpr uint64_t kForceUnitAccess = 2;
constexpr uint64_t kDiscard = 4;

uint64_t number(std::string_view bytes, size_t at, size_t size) {
    uint64_t value = 0;
    for (size_t i = size; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

Fault faulty(const std::string& what) {
    return {EILSEQ, "write log: " + what};
}

bool has(std::string_view bytes, size_t at, uint64_t size) {
    return at <= bytes.size() && bytes.size() - at >= size;
}

}  // namespace

Fault parseWriteLog(std::string_view bytes, std::vector<LogEntry>* entries) {
    const char* const kCutOff = "it ends in the middle of an entry";
    if (!has(bytes, 0, kSuperblockSize)) return faulty(kCutOff);
    if (number(bytes, 0, 8) != kMagic || number(bytes, 8, 8) != kVersion) return faulty("another format");
    const uint64_t count = number(bytes, 16, 8);
    const size_t sectorSize = number(bytes, 24, 4);
    if (sectorSize < kHeaderSize) return faulty("no sector size");

    size_t at = sectorSize;
    while (entries->size() < count) {
        if (!has(bytes, at, sectorSize)) return faulty(kCutOff);
        const uint64_t flags = number(bytes, at + 16, 8);
        if ((flags & kDiscard) != 0) return faulty("a discard");
        LogEntry entry;
        entry.range = {number(bytes, at, 8) * sectorSize, number(bytes, at + 8, 8) * sectorSize};
        entry.flushes = (flags & kFlush) != 0;
        entry.isDurable = (flags & kForceUnitAccess) != 0;
        at += sectorSize;
        if (!has(bytes, at, entry.range.size)) return faulty(kCutOff);
        if (entry.range.size > 0 &&
            (entry.range.offset > kDiskSize || kDiskSize - entry.range.offset < entry.range.size))
            return faulty("a write beyond the disk");
        entry.data = bytes.substr(at, entry.range.size);
        at += entry.range.size;
        entries->push_back(entry);
    }
    return {};
}

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
    : disk_(std::move(disk)), log_(log), flushedApp0_(disk_, kApp0.offset, kApp0.size) {}

void Replay::forEachState(const Visitor& visit) {
    for (size_t number = 0; number < log_.size(); ++number) {
        const LogEntry& entry = log_[number];
        if (entry.flushes) {
            flushedApp0_.assign(disk_, kApp0.offset, kApp0.size);
            unflushed_.clear();
        }
        if (entry.range.size == 0) continue;
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
