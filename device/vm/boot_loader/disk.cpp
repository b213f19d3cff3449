// The partition table is that of a PC's master boot record, in the first sector; its numbers are little-endian.

#include "disk.h"

#include <cerrno>
#include <cstdio>
#include <memory>

namespace {

constexpr size_t kSectorSize = 512;
constexpr size_t kTableAt = 446;
constexpr char kLinux = '\x83';

std::string littleEndian(size_t value) {
    std::string bytes;
    for (unsigned shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

// Cylinder, head and sector are left empty: the kernel reads the sector's number only.
std::string tableEntry(const ByteRange& partition) {
    return std::string(4, '\0') + kLinux + std::string(3, '\0') +
           littleEndian(partition.offset / kSectorSize) + littleEndian(partition.size / kSectorSize);
}

std::string bootRecord() {
    std::string record(kTableAt, '\0');
    for (const ByteRange& partition : {kFlash, kEnvironment, kApp0})
        record += tableEntry(partition);
    record.resize(kSectorSize - 2, '\0');
    return record + "\x55\xAA";
}

}  // namespace

int createDisk(const std::string& path, const std::string& app0Image) {
    std::string app0;
    if (int rc = readBytes(app0Image, {}, &app0); rc != 0) return rc;
    if (app0.size() != kApp0.size) return EINVAL;
    std::string disk = bootRecord();
    disk.resize(kDiskSize, '\0');
    disk.replace(kApp0.offset, kApp0.size, app0);
    return writeSparse(path, disk);
}
