// The log in which the emulator's driver `blklogwrites` records every write and flush of a disk, in the order in
// which the device issued them. The format is that of the kernel's dm-log-writes; its numbers are little-endian.

#pragma once

#include "image_bytes.h"

#include <string>
#include <string_view>
#include <vector>

/// A write, a flush, or both in one: the flush then comes first.
struct LogEntry {
    ByteRange range;         // on the disk; empty if nothing is written
    std::string_view data;   // as long as the range
    bool flushes = false;    // what was written before is durable
    bool isDurable = false;  // the write itself is durable at once
};

/// Splits the bytes of a log, which must outlive the result. Throws std::runtime_error if they are not a whole log,
/// or if it has a discard: what that leaves on a disk is undefined.
std::vector<LogEntry> parseWriteLog(std::string_view bytes);
