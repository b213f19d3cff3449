// What the first bytes of an image say of it, for each format that is known.

#include "image_content.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

// An image that begins with `head`, and has 4096 bytes if it ends before them.
std::string judge(const std::string& head, const std::string& kind) {
    ImageContent content;
    const std::string bytes = head + std::string(std::max<size_t>(head.size(), 4096) - head.size(), '\x01');
    content.add(0, "stale", 5);
    content.add(0, bytes.data(), 100);
    content.add(100, bytes.data() + 100, bytes.size() - 100);
    std::string text;
    for (const Finding& finding : checkImageContent(content, {kind, "3.10.53", "it", {}}).all)
        text += std::string(text.empty() ? "" : ", ") + severityText(finding.severity) + " " +
                findingCodeText(finding.code);
    return text;
}

std::string at(size_t place, const std::string& bytes) {
    return std::string(place, '\x01') + bytes;
}

const std::string kUimage("\x27\x05\x19\x56________\0\0\1\0____________\5\5", 30);
std::string uimageOf(const std::string& name) {
    return kUimage + std::string("\2\1", 2) + name + std::string(32 - name.size(), '\0');
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
const std::string kMips32 = "error image-processor";

struct Row {
    const char* name;
    std::string head;
    std::string kernel;
    std::string rootfs;
};

const Row kRows[] = {
    {"unknown", "version=4.1\n", "", ""},
    {"one letter", "", "", ""},
    {"uImage, kernel", kUimage + "\2", "", kKind},
    {"uImage, RAM disk", kUimage + "\3", kKind, kMaybeKind},
    {"uImage, firmware", kUimage + "\5", "", ""},
    {"uImage, not loaded", kUimage + "\x0E", "", ""},
    {"uImage, no processor", kUimage.substr(0, 29) + std::string("\0\2", 2), "", kKind},
    {"FIT", kTree + kFitNode, "", kMaybeKind},
    {"device tree", kTree, kNone, kNone},
    {"vmlinux", kMips + kElfEnd, "", kKind},
    {"vmlinux, cut", kMips + std::string(12, '_') + std::string("\0\0\x0F\xFF", 4), "error image-cut-short",
     kKind + ", error image-cut-short"},
    {"vmlinux, little-endian",
     std::string("\x7F"
                 "ELF\1\1__________\2\0\x08\0",
                 20),
     kMips32, kKind + ", " + kMips32},
    {"vmlinux, 64 bits",
     std::string("\x7F"
                 "ELF\2\2__________\0\2\0\x08",
                 20),
     kMips32, kKind + ", " + kMips32},
    {"bzImage", at(514, "HdrS"), kMips32, kKind + ", " + kMips32},
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
     kKind, ""},
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
