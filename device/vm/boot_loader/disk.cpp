// Bytes of the images, whatever the byte order of the workstation.
//
// The partition table is that of a PC's master boot record, in the first sector; its numbers are little-endian.

#include "disk.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uint32_t kPolynomial = 0xEDB88320;  // reflected
constexpr size_t kPiece = 4096;               // bytes, of which a hole is made

std::array<uint32_t, 256> makeTable() {
    std::array<uint32_t, 256> table = {};
    for (uint32_t byte = 0; byte < table.size(); ++byte) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ ((crc & 1) != 0 ? kPolynomial : 0);
        table[byte] = crc;
    }
    return table;
}

}  // namespace

bool overlap(const ByteRange& a, const ByteRange& b) {
    return a.offset < b.offset + b.size && b.offset < a.offset + a.size;
}

uint32_t word(const char* at) {
    unsigned char b[4];
    memcpy(b, at, sizeof b);
    return uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | b[3];
}

uint32_t crc32(const char* bytes, size_t size) {
    static const std::array<uint32_t, 256> table = makeTable();
    uint32_t crc = 0xFFFFFFFF;
    for (size_t i = 0; i < size; ++i)
        crc = crc >> 8 ^ table[(crc ^ static_cast<unsigned char>(bytes[i])) & 0xFF];
    return crc;
}

int readBytes(const std::string& path, const ByteRange& range, std::string* bytes) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "rbe"), fclose);
    if (file == nullptr) return errno;
    struct stat status;
    if (fstat(fileno(file.get()), &status) != 0) return errno;
    const auto fileSize = static_cast<size_t>(status.st_size);
    if (range.offset > fileSize) return EIO;
    bytes->resize(range.size == SIZE_MAX ? fileSize - range.offset : range.size);
    if (fseek(file.get(), static_cast<long>(range.offset), SEEK_SET) != 0) return errno;
    return fread(bytes->data(), 1, bytes->size(), file.get()) == bytes->size() ? 0 : EIO;
}

int writeSparse(const std::string& path, const std::string& bytes) {
    std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "wbe"), fclose);
    if (file == nullptr) return errno;
    if (ftruncate(fileno(file.get()), static_cast<off_t>(bytes.size())) != 0) return errno;
    static const char zeros[kPiece] = {};
    for (size_t at = 0; at < bytes.size(); at += kPiece) {
        const size_t size = std::min(kPiece, bytes.size() - at);
        if (memcmp(bytes.data() + at, zeros, size) == 0) continue;
        if (pwrite(fileno(file.get()), bytes.data() + at, size, static_cast<off_t>(at)) !=
            static_cast<ssize_t>(size))
            return errno == 0 ? EIO : errno;
    }
    return fclose(file.release()) == 0 ? 0 : errno;
}

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
