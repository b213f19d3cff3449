#include "content/image_content.h"

#include "content/image_format.h"
#include "util/installed_version.h"

#include <algorithm>
#include <cctype>

namespace {

// Compares the fields that both have: "3.10.53-yocto" has three. Two that differ in the first are of different
// numberings.
bool isSameRelease(const std::string& release, const std::string& claimed) {
    size_t at = 0;
    size_t claimedAt = 0;
    for (bool isFirst = true; at < release.size() && claimedAt < claimed.size(); isFirst = false) {
        const size_t end = std::min(release.find_first_not_of("0123456789", at), release.size());
        const size_t claimedEnd = std::min(claimed.find('.', claimedAt), claimed.size());
        if (end == at) return true;
        if (release.compare(at, end - at, claimed, claimedAt, claimedEnd - claimedAt) != 0) return isFirst;
        at = end + 1;
        claimedAt = claimedEnd + 1;
    }
    return true;
}

struct ContentRule {
    const ImageFormat& format;
    const ImageClaim& claim;
    Findings* findings;
    bool isKernel = claim.kind == "kernel";

    Finding& add(FindingCode code, const std::string& why) const {
        return findings->add(code, claim.place, claim.name + why);
    }

    Finding& addKind(const std::string& why) const {
        return add(eImageKind, " is " + format.name + ", " + why);
    }

    void judgeUse(const ImageContent& content) const {
        constexpr size_t kFewKinds = 8;
        constexpr uint64_t kLarge = 4096;  // bytes
        switch (format.use) {
        case eUnknownUse:
            if (content.kindsOfBytes() <= kFewKinds && content.size() >= kLarge)
                add(eNotAnImage, " has " + std::to_string(content.kindsOfBytes()) +
                                     " different bytes in all, as a test pattern has.")
                    .severity = eWarning;
            break;
        case eBootable:
            if (!isKernel) addKind("which Linux cannot mount as a root file system.");
            break;
        case eFileSystem:
            if (isKernel) addKind("which no boot loader starts as a kernel.");
            break;
        case eBlockSystem:
            if (isKernel) addKind("which no boot loader starts as a kernel.");
            if (!isKernel) {
                Finding& finding =
                    addKind("which Linux mounts only from a block device, and a volume is not one.");
                finding.severity = eWarning;
                finding.advice =
                    "Make a UBIFS or a squashfs of it, or make sure that the kernel can mount it there.";
            }
            break;
        case eFlashSystem:
            if (isKernel) addKind("from which few boot loaders read a kernel.").severity = eWarning;
            break;
        case eBundle:
            if (!isKernel) addKind("which Linux cannot mount as a root file system.").severity = eWarning;
            break;
        case eRamDisk:
            if (isKernel) addKind("which no boot loader starts as a kernel.");
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
        case eText:
            add(eNotAnImage, " is text.").severity = eWarning;
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

    void judgeHeader(const ImageContent& content) const {
        if (format.size > content.size())
            add(eImageCutShort, " has " + std::to_string(content.size()) +
                                    " bytes, and by its header it has " + std::to_string(format.size) + ".");
        else if (!format.damage.empty())
            add(eImageChecksum, " is damaged: its " + format.damage + " does not match the checksum in it.");
        else if (format.payload != 0 && content.payloadSum() != bigEndianAt(content.head(), 24, 4))
            add(eImageChecksum, " is damaged: what follows its header does not match the checksum there.");
        if (!format.fault.empty()) add(eImageHeader, " " + format.fault + ".");
        judgeSince();
        if (format.isOld && !isKernel)
            add(eImageOld, " is a squashfs of a version before 4, which Linux has not mounted since 2.6.29.");
    }

    void judgeSince() const {
        PackedVersion since = 0;
        PackedVersion kernel = 0;
        if (isKernel || *format.since == '\0' || claim.kernelVersion.empty()) return;
        if (parseVersion(&since, format.since) != 0 ||
            parseVersion(&kernel, claim.kernelVersion.c_str()) != 0)
            return;
        if (kernel >= since) return;
        add(eImageNeedsKernel, " is " + format.name + " of a compression that Linux mounts since " +
                                   format.since + ", and the spec's kernel is " + claim.kernelVersion + ".");
    }

    // The next update reads the release of the running kernel. It may be numbered differently than in the spec.
    void judgeRelease(const std::string& release, bool isExact) const {
        std::string text = release;
        PackedVersion version = 0;
        if (release.empty()) return;
        if (parseKernelRelease(&version, text.data()) != 0) {
            Finding& finding =
                add(eKernelRelease,
                    " has the release \"" + release +
                        "\", which the device cannot read: a device that runs it refuses every update.");
            if (!isExact) finding.severity = eWarning;
        }
        if (isSameRelease(release, claim.version)) return;
        add(eImageVersion,
            " has the release \"" + release + "\", and the spec has version " + claim.version + ".");
    }
};

// Why the bytes as a whole cannot be an image; empty: they can.
std::string fillingText(const ImageContent& content, const ImageFormat& format) {
    const std::string& head = content.head();
    if (head.empty()) return " is empty.";
    const bool isUniform = content.kindsOfBytes() == 1;
    if (isUniform && head[0] == '\0') return " consists of zeros.";
    if (isUniform && head[0] == '\xFF') return " consists of 0xFF bytes, like erased flash.";
    const bool isKnown = format.use != eUnknownUse && format.use != eText;
    if (isKnown || (head[0] != '\0' && head[0] != '\xFF')) return "";
    const size_t start = head.find_first_not_of(head[0]);
    const ImageFormat inside = findFormat(head.substr(std::min(start, head.size())));
    if (inside.use == eUnknownUse || inside.use == eText) return "";
    return " begins with " + std::to_string(start) + " empty bytes, and then is " + inside.name + ".";
}

}  // namespace

void ImageContent::add(uint64_t offset, const char* bytes, size_t size) {
    if (offset == 0) *this = ImageContent();
    if (head_.size() < kFormatHead) head_.append(bytes, std::min(size, kFormatHead - head_.size()));
    for (size_t i = 0; i < size && !seen_.all(); ++i)
        seen_.set(static_cast<unsigned char>(bytes[i]));
    sumPayload(offset, bytes, size);
    size_ = offset + size;
    if (release_.empty()) findRelease(bytes, size);
}

void ImageContent::findRelease(const char* bytes, size_t size) {
    constexpr char kBanner[] = "Linux version ";
    constexpr size_t kLongest = 96;  // bytes of the banner with its release
    const std::string window = tail_ + std::string(bytes, size);
    for (size_t at = window.find(kBanner); at != std::string::npos; at = window.find(kBanner, at + 1)) {
        const size_t start = at + sizeof kBanner - 1;
        if (window.size() < at + kLongest && size != 0) break;  // the rest comes with the next bytes
        const size_t end = window.find_first_of(std::string(" (\n\0", 4), start);
        if (start >= window.size() || isdigit(static_cast<unsigned char>(window[start])) == 0) continue;
        release_ = window.substr(start, end == std::string::npos ? end : end - start);
        return;
    }
    tail_ = window.substr(window.size() - std::min(window.size(), kLongest));
}

// If the header is not real, the result is not used.
void ImageContent::sumPayload(uint64_t offset, const char* bytes, size_t size) {
    constexpr uint64_t kHeader = 64;
    const uint64_t end = std::min(offset + size, kHeader + bigEndianAt(head_, 12, 4));
    const uint64_t start = std::max(offset, kHeader);
    if (start < end) sum_ = addToSum(sum_, bytes + (start - offset), end - start);
}

Findings checkImageContent(const ImageContent& content, const ImageClaim& claim) {
    Findings findings;
    const ImageFormat format = findFormat(content.head());
    const std::string filling = fillingText(content, format);
    if (!filling.empty()) {
        findings.add(eNotAnImage, claim.place, claim.name + filling);
        return findings;
    }
    const ContentRule rule = {format, claim, &findings};
    rule.judgeUse(content);
    rule.judgeHeader(content);
    const bool isExact = !content.release().empty();
    if (rule.isKernel) rule.judgeRelease(isExact ? content.release() : format.release, isExact);
    return findings;
}
