// Every physical eraseblock has two headers: one of its own, and one that says which LEB it holds.

#include "ubi_image.h"

#include <cerrno>

namespace {

constexpr uint32_t kEraseMagic = 0x55424923;   // "UBI#"
constexpr uint32_t kVolumeMagic = 0x55424921;  // "UBI!"
constexpr size_t kHeaderSize = 64;
constexpr size_t kHeaderCrcAt = 60;
constexpr size_t kRecordSize = 172;
constexpr size_t kRecordCrcAt = 168;
constexpr size_t kNameAt = 16;
constexpr size_t kMostVolumes = 128;
constexpr uint8_t kStatic = 2;

bool isHeader(const char* at, uint32_t magic) {
    return word(at) == magic && word(at + kHeaderCrcAt) == crc32(at, kHeaderCrcAt);
}

using LebsOfVolumes = std::map<uint32_t, std::map<uint32_t, LebPlace>>;

bool isWhole(std::string_view flash, size_t lebSize, const LebPlace& leb) {
    return leb.dataSize <= lebSize && crc32(flash.data() + leb.offset, leb.dataSize) == leb.dataCrc;
}

LebsOfVolumes newestLebs(const std::vector<std::optional<UbiBlock>>& blocks) {
    LebsOfVolumes found;
    for (const std::optional<UbiBlock>& block : blocks) {
        if (!block) continue;
        const auto [leb, isFirst] = found[block->volume].emplace(block->leb, block->place);
        if (!isFirst && leb->second.sequence < block->place.sequence) leb->second = block->place;
    }
    return found;
}

// The volume table stands twice; either will do.
bool takeTable(std::string_view flash, size_t lebSize, size_t tableAt, const LebsOfVolumes& found,
               std::vector<UbiVolume>* volumes) {
    volumes->clear();
    for (uint32_t id = 0; id < kMostVolumes && (id + 1) * kRecordSize <= lebSize; ++id) {
        const char* record = flash.data() + tableAt + id * kRecordSize;
        if (word(record + kRecordCrcAt) != crc32(record, kRecordCrcAt)) return false;
        if (word(record) == 0) continue;
        const size_t nameLength = word(record + 12) & 0xFFFF;
        UbiVolume volume = {id,
                            std::string(record + kNameAt, nameLength < kMostVolumes ? nameLength : 0),
                            record[12] == kStatic,
                            record[13] != 0,
                            word(record),
                            {}};
        const auto lebs = found.find(id);
        if (lebs != found.end()) volume.lebs = lebs->second;
        volumes->push_back(volume);
    }
    return true;
}

size_t lebSizeOf(const std::vector<std::optional<UbiBlock>>& blocks) {
    for (const std::optional<UbiBlock>& block : blocks) {
        if (block) return block->lebSize;
    }
    return 0;
}

}  // namespace

std::optional<UbiBlock> readUbiBlock(std::string_view flash, size_t start, size_t blockSize) {
    const char* block = flash.data() + start;
    if (!isHeader(block, kEraseMagic)) return std::nullopt;
    const size_t headerAt = word(block + 16);
    const size_t dataAt = word(block + 20);
    if (headerAt + kHeaderSize > dataAt || dataAt >= blockSize) return std::nullopt;
    const char* header = block + headerAt;
    if (!isHeader(header, kVolumeMagic)) return std::nullopt;
    const LebPlace place = {uint64_t{word(header + 40)} << 32 | word(header + 44), start + dataAt,
                            word(header + 20), word(header + 32), word(header + 24)};
    const size_t lebSize = blockSize - dataAt;
    // A copy that wear-levelling made counts only if it is whole: the original is older, and still there.
    const bool isCopy = header[6] != 0;
    if (isCopy && !isWhole(flash, lebSize, place)) return std::nullopt;
    return UbiBlock{lebSize, word(header + 8), word(header + 12), place};
}

int findUbiVolumes(std::string_view flash, const std::vector<std::optional<UbiBlock>>& blocks,
                   std::vector<UbiVolume>* volumes) {
    LebsOfVolumes found = newestLebs(blocks);
    for (const auto& [number, leb] : found[kLayoutVolume]) {
        if (number < 2 && takeTable(flash, lebSizeOf(blocks), leb.offset, found, volumes)) return 0;
    }
    return EILSEQ;
}

int readUbiImage(const std::string& path, size_t blockSize, UbiImage* image, const ByteRange& range) {
    if (int rc = readBytes(path, range, &image->bytes); rc != 0) return rc;
    std::vector<std::optional<UbiBlock>> blocks;
    for (size_t start = 0; start + blockSize <= image->bytes.size(); start += blockSize)
        blocks.push_back(readUbiBlock(image->bytes, start, blockSize));
    image->lebSize = lebSizeOf(blocks);
    return findUbiVolumes(image->bytes, blocks, &image->volumes);
}

const UbiVolume* findUbiVolume(const std::vector<UbiVolume>& volumes, const std::string& name) {
    for (const UbiVolume& volume : volumes) {
        if (volume.name == name) return &volume;
    }
    return nullptr;
}

const UbiVolume* findUbiVolume(const UbiImage& image, const std::string& name) {
    return findUbiVolume(image.volumes, name);
}

int readStaticVolume(const UbiImage& image, const UbiVolume& volume, std::string* data) {
    if (!volume.isStatic) return EINVAL;
    if (volume.updating || volume.lebs.empty()) return EILSEQ;
    const uint32_t used = volume.lebs.begin()->second.usedLebs;
    for (uint32_t number = 0; number < used; ++number) {
        const auto leb = volume.lebs.find(number);
        if (leb == volume.lebs.end() || !isWhole(image.bytes, image.lebSize, leb->second)) return EILSEQ;
        data->append(image.bytes, leb->second.offset, leb->second.dataSize);
    }
    return 0;
}
