// The log in which the emulator's driver `blklogwrites` records every write and flush of a disk, in the order in
// which the device issued them. The format is that of the kernel's dm-log-writes; its numbers are little-endian.
//
// Every state that a power cut during a recorded update can leave on the disk.

#pragma once

#include "disk.h"
#include "host/fault.h"

#include <functional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

/// A write, a flush, or both in one: the flush then comes first.
struct LogEntry {
    ByteRange range;         // on the disk; empty if nothing is written
    std::string_view data;   // as long as the range
    bool flushes = false;    // what was written before is durable
    bool isDurable = false;  // the write itself is durable at once
};

/// Splits the bytes of a log, which must outlive the entries.
/// \return a fault if they are not a whole log, if it has a write beyond the disk, or if it has a discard: what that
///         leaves on a disk is undefined.
Fault parseWriteLog(std::string_view bytes, std::vector<LogEntry>* entries);

enum class CutKind {
    kBetween,  // after a write
    kTorn,     // in the middle of a write, at a sector's boundary
    kDropped,  // after a write, and the disk's cache had kept back others to /app0
};

struct Cut {
    static constexpr size_t kAll = SIZE_MAX;

    CutKind kind = CutKind::kBetween;
    size_t entry = 0;   // of the log: the last write that reached the disk, wholly or in part
    size_t detail = 0;  // torn: the bytes that did; dropped: the entry that did not, or kAll of the unflushed
};

/// The disk after a cut. Valid until the next state of the replay is visited.
class CutState {
public:
    /// Names the contents of /app0: equal names, equal contents.
    using App0Name = std::tuple<CutKind, size_t, size_t>;

    Cut cut;
    const std::string* prefix = nullptr;  // the disk without losses: flash and environment are valid
    ByteRange changed;                    // where `prefix` differs from that of the state visited before
    bool isDistinct = true;               // false after a write of what was there before
    App0Name app0Name;

    /// The contents of /app0's partition.
    std::string app0() const;

    /// The whole disk.
    std::string disk() const;

private:
    friend class Replay;
    const class Replay* replay_ = nullptr;
};

class Replay {
public:
    using Visitor = std::function<void(const CutState&)>;

    /// \param disk the image before the first entry, of kDiskSize bytes.
    Replay(std::string disk, const std::vector<LogEntry>& log);

    /// Visits all states, in the order of the log.
    void forEachState(const Visitor& visit);

private:
    friend class CutState;
    void tear(const LogEntry& entry, size_t number, const Visitor& visit);
    void drop(size_t number, const Visitor& visit) const;
    void show(const Cut& cut, const ByteRange& changed, CutState::App0Name name, const Visitor& visit) const;
    std::string app0Without(size_t entry) const;

    std::string disk_;
    const std::vector<LogEntry>& log_;
    std::string flushedApp0_;        // what the last flush made durable
    std::vector<size_t> unflushed_;  // the entries that have written to /app0 since
    size_t lastApp0Entry_ = 0;
    bool isDistinct_ = true;
};
