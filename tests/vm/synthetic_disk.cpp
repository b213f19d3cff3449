#include "synthetic_disk.h"

#include "child_process.h"
#include "disk.h"
#include "flash_format.h"
#include "support/crypto.h"
#include "support/scratch.h"
#include "ubi_tools/ref_checksums.h"

#include <stdexcept>

namespace {

constexpr size_t kSector = 512;

std::string littleEndian(uint64_t value, size_t size) {
    std::string bytes;
    for (size_t i = 0; i < size; ++i)
        bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    return bytes;
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
    std::vector<VolumeRecord> table;
    std::string flash;
    for (const ExpectedSet& set : {sets.next, sets.old}) {
        const uint32_t id = static_cast<uint32_t>(table.size());
        table.push_back({set.kernelVolume(), kStaticVolume});
        table.push_back({set.rootfsVolume(), kStaticVolume});
        table.push_back({set.kernelVolume() + "_data", kDynamicVolume});
        flash += blockImage({id, 0, 1, set.kernel.bytes}, kFlashBlockSize) +
                 blockImage({id + 1, 0, 1, set.rootfs.bytes}, kFlashBlockSize);
    }
    flash += blockImage({kTableVolume, 0, 1, volumeTable(table)}, kFlashBlockSize);
    flash.resize(kFlash.size, '\xFF');
    return flash;
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
