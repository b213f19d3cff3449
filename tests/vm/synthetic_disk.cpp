#include "synthetic_disk.h"

#include "child_process.h"
#include "disk.h"
#include "support/crypto.h"
#include "support/scratch.h"
#include "ubi_tools/ref_checksums.h"

#include <stdexcept>

namespace {

constexpr size_t kDataAt = 128;
constexpr size_t kSector = 512;
constexpr size_t kMostVolumes = 128;
constexpr uint32_t kTableVolume = 0x7FFFEFFF;

std::string bigEndian(uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

std::string littleEndian(uint64_t value, size_t size) {
    std::string bytes;
    for (size_t i = 0; i < size; ++i)
        bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    return bytes;
}

std::string withCrc(std::string bytes, size_t sizeBefore) {
    bytes.resize(sizeBefore);
    return bytes + bigEndian(crc32(bytes.data(), bytes.size()));
}

std::string eraseblock(uint32_t volume, const std::string& data) {
    std::string bytes = withCrc(
        "UBI#" + std::string("\1\0\0\0", 4) + std::string(8, '\0') + bigEndian(64) + bigEndian(kDataAt), 60);
    bytes += withCrc("UBI!" + std::string("\1\1\0\0", 4) + bigEndian(volume) + bigEndian(0) + bigEndian(0) +
                         bigEndian(static_cast<uint32_t>(data.size())) + bigEndian(1) + bigEndian(0) +
                         bigEndian(crc32(data.data(), data.size())) + std::string(8, '\0') + bigEndian(1),
                     60);
    bytes += data;
    bytes.resize(kFlashBlockSize, '\xFF');
    return bytes;
}

std::string tableRecord(const std::string& name, char type) {
    return withCrc(bigEndian(4) + bigEndian(1) + bigEndian(0) + type + '\0' +
                       bigEndian(static_cast<uint32_t>(name.size())).substr(2) + name,
                   168);
}

ExpectedImage image(const std::string& bytes) {
    return {bytes, md5Hex(bytes)};
}

}  // namespace

ExpectedSets syntheticSets() {
    return {{1, "2.0", image("kernel 2.0"), image("rootfs 2.0")},
            {0, "3.0", image("kernel 3.0"), image("rootfs 3.0")}};
}

std::string syntheticFlash(const ExpectedSets& sets) {
    std::string table;
    std::string blocks;
    uint32_t id = 0;
    for (const ExpectedSet& set : {sets.next, sets.old}) {
        table += tableRecord(set.kernelVolume(), 2) + tableRecord(set.rootfsVolume(), 2) +
                 tableRecord(set.kernelVolume() + "_data", 1);
        blocks += eraseblock(id, set.kernel.bytes) + eraseblock(id + 1, set.rootfs.bytes);
        id += 3;
    }
    while (id++ < kMostVolumes)
        table += withCrc("", 168);
    std::string flash = blocks + eraseblock(kTableVolume, table);
    flash.resize(kFlash.size, '\xFF');
    return flash;
}

std::string environmentCopy(unsigned set, char flag) {
    std::string variables = "bootswitcher=0A0A0" + std::to_string(set);
    variables.resize(0x2000 - 5, '\0');
    return bigEndian(~crc32(variables.data(), variables.size())) + flag + variables;
}

std::string refFileContents(const std::vector<ExpectedSet>& sets) {
    RefChecksumList list;
    for (const ExpectedSet& set : sets) {
        setRefChecksum(&list, set.kernelVolume(), set.kernel.md5);
        setRefChecksum(&list, set.rootfsVolume(), set.rootfs.md5);
    }
    const ScratchDir scratch;
    if (writeRefFile(list, scratch.path + "/file") != 0) throw std::runtime_error("no reference file");
    return readWholeFile(scratch.path + "/file");
}

std::string syntheticApp0(const std::vector<NamedFile>& files) {
    const ScratchDir scratch;
    const std::string tree = scratch.path + "/tree";
    writeWholeFile(tree + "/secrets/rovu/preshared", kSyntheticKey);
    for (const NamedFile& file : files)
        writeWholeFile(tree + "/" + file.name, file.contents);
    const std::string path = scratch.path + "/app0.img";
    if (runProgram({"/sbin/mke2fs", "-q", "-t", "ext4", "-O", "^metadata_csum", "-d", tree, path, "4M"},
                   scratch.path + "/log") != 0)
        throw std::runtime_error("mke2fs: " + readWholeFile(scratch.path + "/log"));
    return readWholeFile(path);
}

std::string syntheticDisk(const std::string& flash, const std::string& environment, const std::string& app0) {
    std::string disk(kDiskSize, '\0');
    disk.replace(kFlash.offset, flash.size(), flash);
    disk.replace(kEnvironment.offset, kEnvironment.size, std::string(kEnvironment.size, '\xFF'));
    disk.replace(kEnvironment.offset, environment.size(), environment);
    disk.replace(kApp0.offset, app0.size(), app0);
    return disk;
}

LogEntry writeAt(size_t offset, const std::string& data) {
    return {{offset, data.size()}, data, false, false};
}

LogEntry flush() {
    return {{0, 0}, "", true, false};
}

std::string logBytes(const std::vector<LogEntry>& entries) {
    std::string bytes = littleEndian(0x6A736677736872, 8) + littleEndian(1, 8) +
                        littleEndian(entries.size(), 8) + littleEndian(kSector, 4);
    bytes.resize(kSector, '\0');
    for (const LogEntry& entry : entries) {
        bytes += littleEndian(entry.range.offset / kSector, 8) + littleEndian(entry.range.size / kSector, 8) +
                 littleEndian(entry.flushes ? 1 : 0, 8) + littleEndian(0, 8);
        bytes.resize((bytes.size() + kSector - 1) / kSector * kSector, '\0');
        bytes += entry.data;
    }
    return bytes;
}
