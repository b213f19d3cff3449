#include "content/image_format.h"

#include "host/text.h"

#include <algorithm>
#include <cctype>
#include <zlib.h>

namespace {

struct Magic {
    size_t place;
    std::string bytes;
    FormatUse use;
    const char* name;
    const char* processor = "";
};

const Magic kMagics[] = {
    {0, {"hsqs", 4}, eFileSystem, "a squashfs"},
    {0, {"sqsh", 4}, eFileSystem, "a squashfs of the big-endian format that ended with version 3"},
    {0, {"\x31\x18\x10\x06", 4}, eFlashSystem, "a UBIFS"},
    {0, {"\x28\xCD\x3D\x45", 4}, eFileSystem, "a cramfs"},
    {0, {"\x45\x3D\xCD\x28", 4}, eFileSystem, "a cramfs"},
    {0, {"-rom1fs-", 8}, eFileSystem, "a romfs"},
    {1024, {"\xE2\xE1\xF5\xE0", 4}, eFileSystem, "an EROFS"},
    {0, {"UBI#", 4}, eVolumes, "a UBI image"},
    {0, {"070701", 6}, eRamDisk, "a cpio archive"},
    {0, {"\x1F\x8B\x08", 3}, eCompressed, "compressed with gzip"},
    {0, {"\xFD\x37zXZ\0", 6}, eCompressed, "compressed with xz"},
    {4, {"1AY&SY", 6}, eCompressed, "compressed with bzip2"},
    {0, {"\x28\xB5\x2F\xFD", 4}, eCompressed, "compressed with zstd"},
    {0, {"\x04\x22\x4D\x18", 4}, eCompressed, "compressed with lz4"},
    {0, {"\x02\x21\x4C\x18", 4}, eCompressed, "compressed with lz4"},
    {0, {"\x89LZO", 4}, eCompressed, "compressed with lzop"},
    {514, {"HdrS", 4}, eBootable, "a bzImage", "x86"},
    {36, {"\x18\x28\x6F\x01", 4}, eBootable, "a zImage", "ARM"},
    {56, {"ARM\x64", 4}, eBootable, "a kernel", "64-bit ARM"},
    {56, {"RSC\x05", 4}, eBootable, "a kernel", "RISC-V"},
    {512, {"EFI PART", 8}, eNoImage, "an image of a whole disk"},
    {0, {"QFI\xFB", 4}, eNoImage, "a disk of a virtual machine"},
    {32769, {"CD001", 5}, eNoImage, "an image of a CD"},
    {0, {"!<arch>\n", 8}, eNoImage, "a package or a library"},
    {0, {"\xED\xAB\xEE\xDB", 4}, eNoImage, "a package"},
    {257, {"ustar", 5}, eNoImage, "a tar"},
    {0, {"PK\x03\x04", 4}, eNoImage, "a zip archive"},
    {0, {"7z\xBC\xAF\x27\x1C", 6}, eNoImage, "a 7z archive"},
    {0, {"Salted__", 8}, eNoImage, "encrypted with a password by openssl"},
    {0, {"version https://git-lfs", 23}, eNoImage, "a pointer of git-lfs, not the file that it stands for"},
    {0, {"-----BEGIN ", 11}, eNoImage, "a key or certificate"},
    {0, {"#!/", 3}, eNoImage, "a script"},
};

// For pages that servers send instead of a file.
constexpr const char* kPages[] = {"<!doctype", "<html", "<head", "<body", "<?xml", "<error"};

constexpr char kUimageMagic[] = "\x27\x05\x19\x56";
constexpr uint64_t kUimageHeader = 64;
constexpr char kTreeMagic[] = "\xD0\x0D\xFE\xED";
constexpr char kElfMagic[] = "\x7F"
                             "ELF";
constexpr uint64_t kElfMips = 8;
constexpr size_t kElfHeader = 52;

// The processors of a uImage, by their numbers there.
constexpr const char* kUimageProcessors[] = {
    "",           "Alpha",      "ARM",      "x86",    "IA-64",   "MIPS",      "64-bit MIPS",
    "PowerPC",    "S/390",      "SH",       "SPARC",  "SPARC64", "M68K",      "Nios",
    "MicroBlaze", "Nios II",    "Blackfin", "AVR32",  "ST200",   "a sandbox", "NDS32",
    "OpenRISC",   "64-bit ARM", "ARC",      "x86-64", "Xtensa",  "RISC-V"};

ImageFormat formatOf(FormatUse use, const char* name, uint64_t size = 0) {
    ImageFormat format;
    format.use = use;
    format.name = name;
    format.size = size;
    return format;
}

// What lies after the end counts as 0.
uint64_t numberAt(const std::string& bytes, size_t place, size_t size, bool isBigEndian) {
    uint64_t number = 0;
    for (size_t i = 0; i < size; ++i) {
        const size_t at = place + (isBigEndian ? i : size - 1 - i);
        number = number << 8 | (at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0);
    }
    return number;
}

uint64_t big(const std::string& bytes, size_t place, size_t size) {
    return bigEndianAt(bytes, place, size);
}

uint64_t little(const std::string& bytes, size_t place, size_t size) {
    return numberAt(bytes, place, size, false);
}

// Of the name "Linux-3.10.53", as the kernel's own build gives it; empty also if it may be cut.
std::string releaseOf(const std::string& head) {
    const std::string prefix = "Linux-";
    const std::string name = head.substr(std::min<size_t>(32, head.size()), 32);
    const size_t end = name.find('\0');
    return end == std::string::npos || !startsWith(name, prefix)
               ? ""
               : name.substr(prefix.size(), end - prefix.size());
}

// What a uImage says of its payload, against the payload's first bytes.
std::string payloadFault(const std::string& head) {
    constexpr const char* kCompressions[] = {
        "not compressed",       "compressed with gzip", "compressed with bzip2", "compressed with lzma",
        "compressed with lzop", "compressed with lz4",  "compressed with zstd"};
    constexpr uint64_t kLzma = 3;  // has no magic; neither has uncompressed data
    const uint64_t compression = big(head, 31, 1);
    if (compression >= std::size(kCompressions) || head.size() <= kUimageHeader) return "";
    const std::string said = kCompressions[compression];
    const ImageFormat payload = findFormat(head.substr(kUimageHeader));
    const std::string found = payload.use == eCompressed   ? payload.name
                              : payload.use == eFileSystem ? payload.name
                                                           : "something else";
    if (found == said) return "";
    if (found == "something else" && (compression == 0 || compression >= kLzma)) return "";
    return "says that what follows its header is " + said + ", and that is " + found;
}

// The checksum of a uImage's header is over its bytes without the checksum.
bool isHeaderWhole(const std::string& head) {
    if (head.size() < kUimageHeader) return false;
    std::string bytes = head.substr(0, kUimageHeader);
    bytes.replace(4, 4, 4, '\0');
    return addToSum(0, bytes.data(), bytes.size()) == big(head, 4, 4);
}

ImageFormat uimage(const std::string& head) {
    constexpr size_t kTypes = 9;
    const struct {
        FormatUse use;
        const char* name;
    } types[kTypes] = {{eUnknownUse, "a uImage"},
                       {eBootable, "a uImage of a program"},
                       {eBootable, "a uImage of a kernel"},
                       {eRamDisk, "a uImage of a RAM disk"},
                       {eBundle, "a uImage of several files"},
                       {eUnknownUse, "a uImage of firmware"},
                       {eUnknownUse, "a uImage of a script"},
                       {eRamDisk, "a uImage of a file system"},
                       {eNoImage, "a uImage of a device tree"}};
    const uint64_t type = big(head, 30, 1);
    const uint64_t processor = big(head, 29, 1);
    const auto& entry = types[type < kTypes ? type : 0];
    ImageFormat format = formatOf(entry.use, entry.name, kUimageHeader + big(head, 12, 4));
    if (processor < std::size(kUimageProcessors)) format.processor = kUimageProcessors[processor];
    format.release = releaseOf(head);
    format.payload = kUimageHeader;
    constexpr uint64_t kLinux = 5;
    constexpr uint64_t kBootLoader = 17;
    constexpr uint64_t kKernel = 2;
    const uint64_t system = big(head, 28, 1);
    if (!isHeaderWhole(head)) format.damage = "header";
    if (system == kBootLoader) {
        format.use = eNoImage;
        format.name = "a uImage of the boot loader itself";
    } else if (type == kKernel && system != kLinux && system != 0) {
        format.fault = "is for another system than Linux";
    } else if (type == kKernel) {
        format.fault = payloadFault(head);
    }
    return format;
}

// A FIT is a device tree with a node "images", which comes before the images themselves.
ImageFormat tree(const std::string& head) {
    const std::string node("\0\0\0\1images\0", 11);
    const bool isFit = head.find(node) != std::string::npos;
    return formatOf(isFit ? eBundle : eNoImage, isFit ? "a FIT image" : "a device tree", big(head, 4, 4));
}

const char* elfProcessor(uint64_t machine) {
    switch (machine) {
    case 3:
        return "x86";
    case 20:
        return "PowerPC";
    case 40:
        return "ARM";
    case 62:
        return "x86-64";
    case 183:
        return "64-bit ARM";
    case 243:
        return "RISC-V";
    default:
        return "another processor";
    }
}

ImageFormat elf(const std::string& head) {
    const bool isBigEndian = big(head, 5, 1) == 2;
    const bool is64Bit = big(head, 4, 1) == 2;
    ImageFormat format = formatOf(eBootable, "an ELF program");
    const uint64_t machine = numberAt(head, 18, 2, isBigEndian);
    if (machine == kElfMips) {
        format.processor = std::string(is64Bit ? "64-bit " : "32-bit ") +
                           (isBigEndian ? "big-endian MIPS" : "little-endian MIPS");
    } else {
        format.processor = elfProcessor(machine);
    }
    const auto at = [&](size_t place, size_t size) { return numberAt(head, place, size, isBigEndian); };
    const uint64_t sections = is64Bit ? at(40, 8) : at(32, 4);
    const size_t counts = is64Bit ? 58 : 46;
    constexpr uint64_t kMost = uint64_t{1} << 40;  // what is larger is no place in a file
    if (sections >= kElfHeader && sections < kMost)
        format.size = sections + at(counts, 2) * at(counts + 2, 2);
    return format;
}

// Its magic is short, and so are the ranges of the block size and the revision.
bool isExt(const std::string& head) {
    return little(head, 1080, 2) == 0xEF53 && little(head, 1048, 4) <= 6 && little(head, 1100, 4) <= 1;
}

// The same holds for its magic, which the type of the first node follows.
bool isJffs2(const std::string& head) {
    const bool isBigEndian = startsWith(head, "\x19\x85");
    if (!isBigEndian && !startsWith(head, "\x85\x19")) return false;
    switch (numberAt(head, 2, 2, isBigEndian)) {
    case 0x2003:
    case 0x2004:
    case 0xE001:
    case 0xE002:
    case 0xE008:
    case 0xE009:
        return true;
    default:
        return false;
    }
}

// A node of a UBIFS has its checksum after the magic, and its length after a number of its own.
ImageFormat ubifs(const std::string& head, ImageFormat format) {
    constexpr uint64_t kSuperblock = 6;
    constexpr size_t kSummed = 8;  // where the bytes begin that are summed
    constexpr uint64_t kZstd = 3;
    if (little(head, 20, 1) != kSuperblock) return format;
    format.lebSize = little(head, 36, 4);
    format.size = format.lebSize * little(head, 40, 4);
    if (little(head, 84, 2) == kZstd) format.since = "5.3";
    const uint64_t length = little(head, 16, 4);
    if (length <= kSummed || length > head.size()) return format;
    if (~addToSum(0, head.data() + kSummed, length - kSummed) != little(head, 4, 4))
        format.damage = "superblock";
    return format;
}

ImageFormat squashfs(const std::string& head, ImageFormat format) {
    constexpr const char* kSince[] = {"", "", "", "2.6.36", "2.6.38", "3.19", "4.14"};  // by compression
    format.isOld = startsWith(head, "sqsh") || little(head, 28, 2) < 4;
    if (format.isOld) return format;
    format.size = little(head, 40, 8);
    const uint64_t compression = little(head, 20, 2);
    if (compression < std::size(kSince)) format.since = kSince[compression];
    for (size_t table = 48; table <= 80; table += 8) {
        const uint64_t start = little(head, table, 8);
        if (start == UINT64_MAX || start < format.size) continue;
        format.fault = "has a superblock that refers to a place outside the image";
    }
    return format;
}

bool isPage(const std::string& head) {
    size_t start = startsWith(head, "\xEF\xBB\xBF") ? 3 : 0;
    start = std::min(head.find_first_not_of(" \t\r\n", start), head.size());
    std::string text = head.substr(start, 16);
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return std::any_of(std::begin(kPages), std::end(kPages),
                       [&text](const char* page) { return startsWith(text, page); });
}

// Also what a server sends instead of a file. The simulator's images may be text that names their version.
bool isText(const std::string& head) {
    return !head.empty() && !startsWith(head, "version=") &&
           std::all_of(head.begin(), head.end(),
                       [](unsigned char c) { return c >= ' ' ? c != 0x7F : (c >= '\t' && c <= '\r'); });
}

}  // namespace

uint64_t bigEndianAt(const std::string& bytes, size_t place, size_t size) {
    return numberAt(bytes, place, size, true);
}

uint32_t addToSum(uint32_t sum, const char* bytes, size_t size) {
    return static_cast<uint32_t>(crc32_z(sum, reinterpret_cast<const Bytef*>(bytes), size));
}

ImageFormat findFormat(const std::string& head) {
    if (startsWith(head, kUimageMagic)) return uimage(head);
    if (startsWith(head, kTreeMagic)) return tree(head);
    if (startsWith(head, kElfMagic)) return elf(head);
    if (isJffs2(head)) return formatOf(eFileSystem, "a JFFS2");
    if (isExt(head)) return formatOf(eBlockSystem, "an ext2, ext3 or ext4");
    if (isPage(head)) return formatOf(eNoImage, "a page of HTML or XML");
    for (const Magic& magic : kMagics) {
        if (head.size() < magic.place || head.compare(magic.place, magic.bytes.size(), magic.bytes) != 0)
            continue;
        ImageFormat format = formatOf(magic.use, magic.name);
        format.processor = magic.processor;
        if (startsWith(head, "hsqs") || startsWith(head, "sqsh")) return squashfs(head, format);
        return magic.use == eFlashSystem ? ubifs(head, format) : format;
    }
    if (isText(head)) return formatOf(eText, "text");
    return {};
}
