// A sector for the superblock; then for each entry a sector for its header, and its data in whole sectors.

#include "recording/write_log.h"

#include <stdexcept>

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

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error("write log: " + what);
}

void require(std::string_view bytes, size_t at, uint64_t size) {
    if (at > bytes.size() || bytes.size() - at < size) fail("it ends in the middle of an entry");
}

}  // namespace

std::vector<LogEntry> parseWriteLog(std::string_view bytes) {
    require(bytes, 0, kSuperblockSize);
    if (number(bytes, 0, 8) != kMagic || number(bytes, 8, 8) != kVersion) fail("another format");
    const uint64_t count = number(bytes, 16, 8);
    const size_t sectorSize = number(bytes, 24, 4);
    if (sectorSize < kHeaderSize) fail("no sector size");

    std::vector<LogEntry> entries;
    size_t at = sectorSize;
    while (entries.size() < count) {
        require(bytes, at, sectorSize);
        const uint64_t flags = number(bytes, at + 16, 8);
        if ((flags & kDiscard) != 0) fail("a discard");
        LogEntry entry;
        entry.range = {number(bytes, at, 8) * sectorSize, number(bytes, at + 8, 8) * sectorSize};
        entry.flushes = (flags & kFlush) != 0;
        entry.isDurable = (flags & kForceUnitAccess) != 0;
        at += sectorSize;
        require(bytes, at, entry.range.size);
        entry.data = bytes.substr(at, entry.range.size);
        at += entry.range.size;
        entries.push_back(entry);
    }
    return entries;
}
