#include "verdict/flash_reader.h"

#include "host/digests.h"
#include "host/files.h"

#include <algorithm>
#include <cstring>
#include <utility>

Fault readExpectedSet(const std::string& folder, const std::string& version, unsigned number,
                      ExpectedSet* set) {
    set->number = number;
    set->version = version;
    const std::string images = folder + "/" + version;
    for (const auto& [image, name] :
         {std::pair(&set->kernel, "/kernel.img"), std::pair(&set->rootfs, "/rootfs.img")}) {
        if (Fault fault = readWholeFile(images + name, &image->bytes)) return fault;
        image->md5 = hexMd5(image->bytes);
    }
    return {};
}

namespace {

bool isLayout(const std::optional<UbiBlock>& block) {
    return block && block->volume == kLayoutVolume;
}

bool isSame(const std::optional<UbiBlock>& a, const std::optional<UbiBlock>& b) {
    if (!a || !b) return !a && !b;
    return a->volume == b->volume && a->leb == b->leb && a->place.sequence == b->place.sequence &&
           a->place.dataSize == b->place.dataSize && a->place.dataCrc == b->place.dataCrc &&
           a->place.usedLebs == b->place.usedLebs;
}

}  // namespace

FlashReader::FlashReader(std::string_view flash)
    : blocks_(flash.size() / kFlashBlockSize), compared_(blocks_.size()) {
    refresh(flash, {0, flash.size()});
}

void FlashReader::refresh(std::string_view flash, const ByteRange& changed) {
    if (changed.size == 0) return;
    bool isAnother = !hasVolumes_;
    const size_t last = std::min((changed.offset + changed.size - 1) / kFlashBlockSize + 1, blocks_.size());
    for (size_t number = changed.offset / kFlashBlockSize; number < last; ++number) {
        const std::optional<UbiBlock> block = readUbiBlock(flash, number * kFlashBlockSize, kFlashBlockSize);
        isAnother =
            isAnother || isLayout(block) || isLayout(blocks_[number]) || !isSame(block, blocks_[number]);
        blocks_[number] = block;
        compared_[number] = {};
    }
    if (isAnother) hasVolumes_ = findUbiVolumes(flash, blocks_, &volumes_) == 0;
}

std::string FlashReader::faultOf(std::string_view flash, const ExpectedSet& set) {
    if (!hasVolumes_) return "no volume table";
    const struct {
        std::string name;
        const ExpectedImage& image;
    } required[] = {{set.kernelVolume(), set.kernel}, {set.rootfsVolume(), set.rootfs}};
    for (const auto& [name, image] : required) {
        const UbiVolume* volume = findUbiVolume(volumes_, name);
        if (volume == nullptr) return "no volume " + name;
        if (!holds(flash, *volume, image)) return "volume " + name + " is not that of " + set.version;
    }
    if (findUbiVolume(volumes_, set.kernelVolume() + "_data") == nullptr) return "no data volume";
    return "";
}

bool FlashReader::holds(std::string_view flash, const UbiVolume& volume, const ExpectedImage& image) {
    if (!volume.isStatic || volume.updating || volume.lebs.empty()) return false;
    const uint32_t used = volume.lebs.begin()->second.usedLebs;
    const size_t lebSize = blocks_[volume.lebs.begin()->second.offset / kFlashBlockSize]->lebSize;
    if (used != (image.bytes.size() + lebSize - 1) / lebSize) return false;
    for (uint32_t leb = 0; leb < used; ++leb) {
        if (!isEqual(flash, volume, leb, image)) return false;
    }
    return true;
}

bool FlashReader::isEqual(std::string_view flash, const UbiVolume& volume, uint32_t leb,
                          const ExpectedImage& image) {
    const auto found = volume.lebs.find(leb);
    if (found == volume.lebs.end()) return false;
    const LebPlace& place = found->second;
    const size_t block = place.offset / kFlashBlockSize;
    Compared& known = compared_[block];
    if (known.image == &image && known.leb == leb) return known.isEqual;
    const size_t at = leb * blocks_[block]->lebSize;
    const size_t size = std::min(blocks_[block]->lebSize, image.bytes.size() - at);
    const bool isEqual = place.dataSize == size &&
                         memcmp(flash.data() + place.offset, image.bytes.data() + at, size) == 0 &&
                         crc32(image.bytes.data() + at, size) == place.dataCrc;
    known = {&image, leb, isEqual};
    return isEqual;
}
