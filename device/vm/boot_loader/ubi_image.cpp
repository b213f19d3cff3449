// Every physical eraseblock has two headers: one of its own, and one that says which LEB it holds.

#include "ubi_image.h"

#include "image_bytes.h"

#include <cerrno>

namespace {

constexpr uint32_t kEraseMagic = 0x55424923;   // "UBI#"
constexpr uint32_t kVolumeMagic = 0x55424921;  // "UBI!"
constexpr uint32_t kLayoutVolume = 0x7FFFEFFF;
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

// A copy that wear-levelling made counts only if it is whole: the original is older, and still there.
bool isWholeCopy(const UbiImage& image, const LebPlace& leb) {
    return leb.dataSize <= image.lebSize &&
           crc32(image.bytes.data() + leb.offset, leb.dataSize) == leb.dataCrc;
}

void takeBlock(size_t start, size_t blockSize, UbiImage* image, LebsOfVolumes* found) {
    const char* block = image->bytes.data() + start;
    if (!isHeader(block, kEraseMagic)) return;
    const size_t headerAt = word(block + 16);
    const size_t dataAt = word(block + 20);
    if (headerAt + kHeaderSize > dataAt || dataAt >= blockSize) return;
    image->lebSize = blockSize - dataAt;
    const char* header = block + headerAt;
    if (!isHeader(header, kVolumeMagic)) return;
    const LebPlace leb = {uint64_t{word(header + 40)} << 32 | word(header + 44), start + dataAt,
                          word(header + 20), word(header + 32), word(header + 24)};
    const bool isCopy = header[6] != 0;
    if (isCopy && !isWholeCopy(*image, leb)) return;
    std::map<uint32_t, LebPlace>& lebs = (*found)[word(header + 8)];
    const auto known = lebs.find(word(header + 12));
    if (known == lebs.end() || known->second.sequence < leb.sequence) lebs[word(header + 12)] = leb;
}

// The volume table stands twice; either will do.
bool takeTable(const LebPlace& leb, const LebsOfVolumes& found, UbiImage* image) {
    image->volumes.clear();
    for (uint32_t id = 0; id < kMostVolumes && (id + 1) * kRecordSize <= image->lebSize; ++id) {
        const char* record = image->bytes.data() + leb.offset + id * kRecordSize;
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
        image->volumes.push_back(volume);
    }
    return true;
}

}  // namespace

int readUbiImage(const std::string& path, size_t blockSize, UbiImage* image) {
    if (int rc = readWhole(path, &image->bytes); rc != 0) return rc;
    LebsOfVolumes found;
    for (size_t start = 0; start + blockSize <= image->bytes.size(); start += blockSize)
        takeBlock(start, blockSize, image, &found);
    for (const auto& [number, leb] : found[kLayoutVolume]) {
        if (number < 2 && takeTable(leb, found, image)) return 0;
    }
    return EILSEQ;
}

const UbiVolume* findUbiVolume(const UbiImage& image, const std::string& name) {
    for (const UbiVolume& volume : image.volumes) {
        if (volume.name == name) return &volume;
    }
    return nullptr;
}

int readStaticVolume(const UbiImage& image, const UbiVolume& volume, std::string* data) {
    if (!volume.isStatic) return EINVAL;
    if (volume.updating || volume.lebs.empty()) return EILSEQ;
    const uint32_t used = volume.lebs.begin()->second.usedLebs;
    for (uint32_t number = 0; number < used; ++number) {
        const auto leb = volume.lebs.find(number);
        if (leb == volume.lebs.end() || !isWholeCopy(image, leb->second)) return EILSEQ;
        data->append(image.bytes, leb->second.offset, leb->second.dataSize);
    }
    return 0;
}
