#include "flash_format.h"

#include "image_bytes.h"

namespace {

constexpr size_t kHeaderSize = 60;   // without its checksum
constexpr size_t kRecordSize = 168;  // the same
constexpr size_t kMostVolumes = 128;

std::string bigEndian(size_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

std::string withCrc(std::string bytes, size_t sizeBefore) {
    bytes.resize(sizeBefore);
    return bytes + bigEndian(crc32(bytes.data(), bytes.size()));
}

}  // namespace

std::string blockImage(const MadeBlock& block, size_t size) {
    const std::string version("\1\0\0\0", 4), zeros(8, '\0'), type("\1\1", 2);
    std::string bytes = withCrc("UBI#" + version + zeros + bigEndian(64) + bigEndian(128), kHeaderSize);
    bytes += withCrc(
        "UBI!" + type + (block.isCopy ? '\1' : '\0') + '\0' + bigEndian(block.volume) + bigEndian(block.leb) +
            bigEndian(0) + bigEndian(block.data.size()) + bigEndian(block.usedLebs) + bigEndian(0) +
            bigEndian(crc32(block.data.data(), block.data.size())) + zeros + bigEndian(block.sequence),
        kHeaderSize);
    bytes += block.data;
    if (block.isDamaged) bytes.back() = static_cast<char>(~bytes.back());
    bytes.resize(size, '\xFF');
    return bytes;
}

std::string volumeTable(const std::vector<VolumeRecord>& records) {
    std::string table;
    for (const VolumeRecord& record : records) {
        table += withCrc(bigEndian(4) + bigEndian(1) + bigEndian(0) + record.type +
                             (record.isUpdating ? '\1' : '\0') + bigEndian(record.name.size()).substr(2) +
                             record.name,
                         kRecordSize);
    }
    for (size_t i = records.size(); i < kMostVolumes; ++i)
        table += withCrc("", kRecordSize);
    return table;
}

std::string environmentCopy(std::string variables, uint8_t flag, bool isSound) {
    variables.resize(0x2000 - 5, '\0');
    const uint32_t checksum = ~crc32(variables.data(), variables.size()) ^ (isSound ? 0 : 1);
    return bigEndian(checksum) + static_cast<char>(flag) + variables;
}
