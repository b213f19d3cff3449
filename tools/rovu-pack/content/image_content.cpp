#include "image_content.h"

#include "image_format.h"

#include <algorithm>

namespace {

struct ContentRule {
    const ImageFormat& format;
    bool isKernel;
    const std::string& name;
    const FindingPlace& place;
    Findings* findings;

    Finding& add(FindingCode code, const std::string& why) const {
        return findings->add(code, place, name + why);
    }

    Finding& addKind(const std::string& why) const {
        return add(eImageKind, " is " + format.name + ", " + why);
    }

    void judgeUse() const {
        switch (format.use) {
        case eUnknownUse:
            break;
        case eBootable:
            if (!isKernel) addKind("and Linux mounts no such root file system.");
            break;
        case eFileSystem:
            if (isKernel) addKind("and no boot loader starts it as a kernel.");
            break;
        case eFlashSystem:
            if (isKernel) addKind("from which few boot loaders read a kernel.").severity = eWarning;
            break;
        case eBundle:
            if (!isKernel) addKind("and Linux mounts no such root file system.").severity = eWarning;
            break;
        case eRamDisk:
            if (isKernel) addKind("and no boot loader starts it as a kernel.");
            if (!isKernel) addKind("which Linux does not mount from its volume.").severity = eWarning;
            break;
        case eCompressed:
            judgeCompressed();
            break;
        case eVolumes:
            add(eNotAnImage,
                " is " + format.name + ", which is flashed whole and is not a volume's contents.")
                .advice = "Give the image that was put into it, as ubinize's configuration names it.";
            break;
        case eNoImage:
            add(eNotAnImage, " is " + format.name + ".");
            break;
        }
    }

    // Some boot loaders decompress a kernel; nothing decompresses a root file system that is mounted.
    void judgeCompressed() const {
        Finding& finding = add(eImageCompressed,
                               " is " + format.name + ", and the device writes it to the volume unchanged.");
        if (isKernel) finding.severity = eWarning;
    }

    void judgeHeader(uint64_t size) const {
        if (!format.processor.empty())
            add(eImageProcessor, " is " + format.name + " for " + format.processor +
                                     ", and the device's processor is a 32-bit big-endian MIPS.");
        if (format.size > size)
            add(eImageCutShort, " has " + std::to_string(size) + " bytes, and by its header it has " +
                                    std::to_string(format.size) + ".");
        if (format.isOld && !isKernel)
            add(eImageOld, " is a squashfs of a version before 4, which Linux mounts no more since 2.6.29.");
    }
};

std::string uniformText(const ImageContent& content) {
    if (content.head().empty()) return " is empty.";
    if (content.head()[0] == '\0') return " has no other bytes than zeros.";
    if (content.head()[0] == '\xFF') return " has no other bytes than 0xFF, as erased flash has.";
    return "";
}

}  // namespace

void ImageContent::add(uint64_t offset, const char* bytes, size_t size) {
    if (offset == 0) *this = ImageContent();
    if (head_.size() < kFormatHead) head_.append(bytes, std::min(size, kFormatHead - head_.size()));
    if (isUniform_) isUniform_ = std::all_of(bytes, bytes + size, [this](char c) { return c == head_[0]; });
    size_ = offset + size;
}

Findings checkImageContent(const ImageContent& content, const std::string& kind, const std::string& name,
                           const FindingPlace& place) {
    Findings findings;
    const std::string uniform = content.isUniform() ? uniformText(content) : "";
    if (!uniform.empty()) {
        findings.add(eNotAnImage, place, name + uniform);
        return findings;
    }
    const ImageFormat format = findFormat(content.head());
    const ContentRule rule = {format, kind == "kernel", name, place, &findings};
    rule.judgeUse();
    rule.judgeHeader(content.size());
    return findings;
}
