// What the first bytes of an image say of it, for each format that is known.

#include "content/image_content.h"

#include <gtest/gtest.h>

namespace {

std::string big(uint32_t number) {
    return {static_cast<char>(number >> 24), static_cast<char>(number >> 16), static_cast<char>(number >> 8),
            static_cast<char>(number)};
}

std::string sumOf(const std::string& bytes) {
    return big(addToSum(0, bytes.data(), bytes.size()));
}

// Its checksums filled in, for the payload that its header announces.
std::string sealed(std::string uimage) {
    uimage.replace(24, 4, sumOf(uimage.substr(64, 0x100)));
    uimage.replace(4, 4, 4, '\0');
    return uimage.replace(4, 4, sumOf(uimage.substr(0, 64)));
}

// An image that begins with `head`, and has 4096 bytes if it ends before them.
std::string judge(const std::string& head, const std::string& kind) {
    ImageContent content;
    std::string bytes = head;
    for (unsigned int value = 1; bytes.size() < 4096; value = value * 1103515245 + 12345)
        bytes += head.empty() ? '\x01' : static_cast<char>(value >> 24 | 1);
    if (head.compare(0, 2, "\x27\x05") == 0 && head.find("damaged") == std::string::npos)
        bytes = sealed(bytes);
    content.add(0, "stale", 5);
    content.add(0, bytes.data(), 100);
    content.add(100, bytes.data() + 100, bytes.size() - 100);
    std::string text;
    for (const Finding& finding : checkImageContent(content, {kind, "3.10.53", "3.10.53", "it", {}}).all)
        text += std::string(text.empty() ? "" : ", ") + severityText(finding.severity) + " " +
                findingCodeText(finding.code);
    return text;
}

std::string at(size_t place, const std::string& bytes) {
    return std::string(place, '\x01') + bytes;
}

const std::string kUimage("\x27\x05\x19\x56________\0\0\1\0____________\5\5", 30);
std::string uimageOf(const std::string& name, const std::string& types = std::string("\2\0", 2)) {
    return kUimage + types + name + std::string(32 - name.size(), '\0');
}

const std::string kGzip("\x1F\x8B\x08", 3);

// The superblock, with its checksum: of `lebs` LEBs of 512 bytes.
std::string ubifsOf(char lebs, char compression) {
    std::string node(96, '\0');
    node.replace(0, 4, "\x31\x18\x10\x06");
    node[16] = 96;
    node[20] = 6;
    node[37] = 2;
    node[40] = lebs;
    node[84] = compression;
    const std::string sum = big(~addToSum(0, node.data() + 8, node.size() - 8));
    return node.replace(4, 4, std::string(sum.rbegin(), sum.rend()));
}

// Its superblock: 4096 bytes, whose tables are at `table` and beyond.
std::string squashfsOf(char compression, char table) {
    std::string head("hsqs" + std::string(92, '\xFF'));
    head[20] = compression;
    head.replace(21, 1, 1, '\0');
    head.replace(28, 2, std::string("\4\0", 2));
    head.replace(40, 8, std::string("\0\x10\0\0\0\0\0\0", 8));
    return head.replace(64, 8, std::string("\0", 1) + table + std::string(6, '\0'));
}

const std::string kElfEnd = std::string(12, '_') + std::string("\0\0\0\x34__________\0\x28\0\x08__", 20);
const std::string kMips = std::string("\x7F"
                                      "ELF\1\2__________\0\2\0\x08",
                                      20);
const std::string kTree("\xD0\x0D\xFE\xED\0\0\x08\0", 8);
const std::string kFitNode("\0\0\0\1images\0", 11);
const std::string kNone = "error not-an-image";
const std::string kKind = "error image-kind";
const std::string kMaybeKind = "warning image-kind";
const std::string kSum = "error image-checksum";
const std::string kHeader = "error image-header";
const std::string kCut = "error image-cut-short";

struct Row {
    const char* name;
    std::string head;
    std::string kernel;
    std::string rootfs;
};

const Row kRows[] = {
    {"unknown", "version=4.1\n", "", ""},
    {"one letter", "", "warning not-an-image", "warning not-an-image"},
    {"uImage, gzip", uimageOf("x", "\2\1") + kGzip, "", kKind},
    {"uImage, gzip that is something else", uimageOf("x", "\2\1"), kHeader, kKind + ", " + kHeader},
    {"uImage, plain that is gzip", uimageOf("x") + kGzip, kHeader, kKind + ", " + kHeader},
    {"uImage, another system", kUimage.substr(0, 28) + std::string("\2\5\2\0", 4), kHeader,
     kKind + ", " + kHeader},
    {"uImage, the boot loader", kUimage.substr(0, 28) + "\x11\5\5", kNone, kNone},
    {"uImage, damaged", uimageOf("damaged"), kSum, kKind + ", " + kSum},
    {"UBIFS, whole", ubifsOf(8, 1), kMaybeKind, ""},
    {"UBIFS, damaged", ubifsOf(8, 1).replace(90, 1, "x"), kMaybeKind + ", " + kSum, kSum},
    {"UBIFS, cut", ubifsOf(9, 1), kMaybeKind + ", " + kCut, kCut},
    {"UBIFS, a later kernel's", ubifsOf(8, 3), kMaybeKind, "warning image-needs-kernel"},
    {"squashfs, xz", squashfsOf(4, 1), kKind, ""},
    {"squashfs, zstd", squashfsOf(6, 1), kKind, "warning image-needs-kernel"},
    {"squashfs, a table outside", squashfsOf(4, 0x10), kKind + ", " + kHeader, kHeader},
    {"zeros before it", std::string(512, '\0') + squashfsOf(4, 1), kNone, kNone},
    {"uImage, kernel", uimageOf("x"), "", kKind},
    {"uImage, RAM disk", uimageOf("x", "\3\1"), kKind, kMaybeKind},
    {"uImage, firmware", uimageOf("x", "\5\1"), "", ""},
    {"uImage, not loaded", uimageOf("x", "\x0E\1"), "", ""},
    {"uImage, no processor", kUimage.substr(0, 29) + std::string("\0\2\0", 3) + "x", "", kKind},
    {"FIT", kTree + kFitNode, "", kMaybeKind},
    {"device tree", kTree, kNone, kNone},
    {"vmlinux", kMips + kElfEnd, "", kKind},
    {"vmlinux, cut", kMips + std::string(12, '_') + std::string("\0\0\x0F\xFF", 4), "error image-cut-short",
     kKind + ", error image-cut-short"},
    {"vmlinux, little-endian",
     std::string("\x7F"
                 "ELF\1\1__________\2\0\x08\0",
                 20) +
         std::string(32, '\0'),
     "", kKind},
    {"vmlinux, 64 bits",
     std::string("\x7F"
                 "ELF\2\2__________\0\2\0\x08",
                 20),
     "", kKind},
    {"bzImage", at(514, "HdrS"), "", kKind},
    {"uImage, another release", uimageOf("Linux-3.10.49"), "warning image-version", kKind},
    {"uImage, the release", uimageOf("Linux-3.10.53-2"), "", kKind},
    {"uImage, another numbering", uimageOf("Linux-6.1.53"), "", kKind},
    {"uImage, no numbers", uimageOf("Linux-3.10.53-yocto"), "warning kernel-release", kKind},
    {"banner", at(95, "Linux version 3.10.49-2-gcc (gcc 12)"), "warning image-version", ""},
    {"banner without numbers", at(3000, "Linux version 3.10.53+ (gcc 12)"), "error kernel-release", ""},
    {"text", std::string(70000, 'x') + "\n", "warning not-an-image", "warning not-an-image"},
    {"squashfs 3", std::string("hsqs________________________\3\0", 30), kKind, "warning image-old"},
    {"UBIFS", "\x31\x18\x10\x06", kMaybeKind, ""},
    {"JFFS2", "\x19\x85\xE0\x01", kKind, ""},
    {"no JFFS2", "\x19\x85\xE0\x03", "", ""},
    {"ext4",
     at(1048, std::string("\2\0\0\0", 4)) + std::string(28, 'x') + "\x53\xEF" + std::string(18, 'x') +
         std::string("\1\0\0\0", 4),
     kKind, kMaybeKind},
    {"no ext4", at(1080, "\x53\xEF"), "", ""},
    {"EROFS", at(1024, "\xE2\xE1\xF5\xE0"), kKind, ""},
    {"UBI image", "UBI#", kNone, kNone},
    {"cpio", "070701", kKind, kMaybeKind},
    {"xz",
     std::string("\xFD"
                 "7zXZ\0",
                 6),
     "warning image-compressed", "error image-compressed"},
    {"bzip2", "BZh91AY&SY", "warning image-compressed", "error image-compressed"},
    {"zstd", "\x28\xB5\x2F\xFD", "warning image-compressed", "error image-compressed"},
    {"lz4", "\x04\x22\x4D\x18", "warning image-compressed", "error image-compressed"},
    {"tar", at(257, "ustar"), kNone, kNone},
    {"zip", "PK\3\4", kNone, kNone},
    {"git-lfs", "version https://git-lfs.github.com/spec/v1\n", kNone, kNone},
    {"page", "\xEF\xBB\xBF\r\n<HTML>", kNone, kNone},
    {"script", "#!/bin/sh\n", kNone, kNone},
    {"zeros", std::string(4096, '\0'), kNone, kNone},
    {"erased", std::string(4096, '\xFF'), kNone, kNone},
};

TEST(ImageContent, FirstBytesTellWhatCanNeitherBootNorBeMounted) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(judge(row.head, "kernel"), row.kernel);
        EXPECT_EQ(judge(row.head, "rootfs"), row.rootfs);
    }
}

}  // namespace
