// Which set runs, the volumes, and the record of what they hold.

#include "inside.h"
#include "rovu_sim/boot_env.h"
#include "support/crypto.h"
#include "ubi_tools/active_set.h"
#include "ubi_tools/overlay_clone.h"
#include "ubi_tools/ubi_volume.h"

#include <csignal>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr uint32_t kNone = 77;  // an out value that is not written
constexpr uint32_t kSize = 380928;
constexpr char kImage[] = "/tmp/rovu/image";
constexpr char kOverlay[] = "/dev/ubi0_2";

void boot(const std::string& bootswitcher, const std::string& commandLine) {
    rovusim::setBootVariable(kState, "bootswitcher", bootswitcher);
    writeWholeFile(kState + "/run/cmdline", commandLine);
}

}  // namespace

struct ActiveSet : InDevice {
    ~ActiveSet() override { boot("0A0A00", line); }

    const std::string line = readWholeFile("/proc/cmdline");
};

TEST_F(ActiveSet, LowestByteOfBootswitcherDecides) {
    const struct {
        const char* bootswitcher;
        int result;
        uint32_t set;
    } rows[] = {
        {"0A0A00", 0, 0}, {"0A0A01", 0, 1},     {"0a0aff", 0, 1},    {"100", 0, 0},
        {"2", 0, 1},      {"FFFFFFFF00", 0, 0}, {"", ENOKEY, kNone}, {"xyz", ENOKEY, kNone},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bootswitcher);
        boot(row.bootswitcher, "nothing of use");
        uint32_t set = kNone;
        EXPECT_EQ(getActiveSet(&set, false), row.result);
        EXPECT_EQ(set, row.set);
    }
}

TEST_F(ActiveSet, KernelCommandLineMustNameTheSameSet) {
    const std::string unknown = "Can't detect active set from kernel command line\n";
    const std::string inconsistent = "Inconsistent state between bootswitcher and running kernel.\n";
    const std::string filler(497, '.');
    const struct {
        std::string commandLine;
        const char* bootswitcher;
        uint32_t set;
        std::string message;
    } rows[] = {
        {"k0_root k0_data", "0A0A00", 0, ""},
        {"data=k1_data root=k1_root\n", "0A0A01", 1, ""},
        {"k1_data k1_root k0_data k0_root", "0A0A00", 0, ""},
        {"k0_root k1_root k1_data", "0A0A01", 1, ""},
        {"k0_root k1_data", "0A0A00", kNone, unknown},
        {"", "0A0A00", kNone, unknown},
        {filler + "k0_root.k0_data", "0A0A00", 0, ""},
        {filler + ".k0_root.k0_data", "0A0A00", kNone, unknown},  // a byte more than is read
        {"k1_root k1_data", "0A0A00", kNone, inconsistent},
        {"k0_root k0_data", "0A0A01", kNone, inconsistent},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.commandLine + " with " + row.bootswitcher);
        boot(row.bootswitcher, row.commandLine);
        uint32_t set = kNone;
        EXPECT_EQ(getActiveSet(&set, true), row.set == kNone ? ENOKEY : 0);
        EXPECT_EQ(set, row.set);
        EXPECT_EQ(messages(), row.message);
    }
    uint32_t set = kNone;
    failCalls("fw_printenv=half:1");
    EXPECT_EQ(getActiveSet(&set, true), ENOKEY);
    EXPECT_EQ(set, kNone);
    EXPECT_EQ(messages(), "Failed to read bootswitcher state (20, 1).\n");
}

struct Volumes : InDevice {
    Volumes() { writeWholeFile(kImage, image); }

    int make(const std::string& name, const char* source, const std::string& digest, bool dry = false) {
        return makeUbiVolume(name.c_str(), kSize, false, source, digest.c_str(), kWorkDir, dry);
    }

    const std::string image = "the bytes of an image", md5 = md5Hex(image);
};

TEST_F(Volumes, LookUpTakesIdAndSizeFromTheirLines) {
    const std::string id = "Volume ID:   3 (on ubi0)\n",
                      size = "Size:        10 LEBs (1269760 bytes, 1.2 MiB)\n";
    const std::string filler(255 - id.size() - 1 - 22, 'x'), last = "Size: 10 LEBs (7 bytes";
    const struct {
        std::string output;
        int result;
        uint32_t id, size;
        int resultWithoutSize;  // if the size is not asked for
    } rows[] = {
        {id + "Type: static\n" + size, 0, 3, 1269760, 0},
        {"Size:1 LEBs(\t5 bytes)\n\n\nVolume ID:9", 0, 9, 5, 0},
        {id + "Volume ID: 4\n" + size + "Size: 1 LEBs (5 bytes)\n", 0, 3, 1269760, 0},
        {id, EILSEQ, kNone, kNone, 0},
        {size, EILSEQ, kNone, 1269760, EILSEQ},
        {"", EILSEQ, kNone, kNone, EILSEQ},
        {"\n\n", EILSEQ, kNone, kNone, EILSEQ},
        {id + filler + "\n" + last, 0, 3, 7, 0},
        {id + filler + "123456789\n" + last, EILSEQ, kNone, kNone, 0},  // more than is read
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.output);
        replaceTool("ubinfo", "printf '" + row.output + "'\n");
        uint32_t foundId = kNone, foundSize = kNone;
        EXPECT_EQ(getUbiVolumeInfo(&foundId, "k1", &foundSize), row.result);
        EXPECT_EQ(foundId, row.id);
        EXPECT_EQ(foundSize, row.size);
        EXPECT_EQ(getUbiVolumeInfo(&foundId, "k1", nullptr), row.resultWithoutSize);
    }
    replaceTool("ubinfo", "echo 'Volume ID: 3'; exit 19\n");
    uint32_t unused = 0;
    EXPECT_EQ(getUbiVolumeInfo(&unused, "k1", nullptr), 19);
    EXPECT_EQ(messages(), "");
}

TEST_F(Volumes, EachFailedStepGivesItsCodeAndLeavesNoCopy) {
    const std::string notRemoved = "Failed to remove UBI volume \"k1\"\n",
                      notCreated = "Failed to create UBI volume \"k1\"\n",
                      notFlashed = "Failed to flash UBI volume \"k1\"\n",
                      notCopied = "Failed to write UBI volume \"k1\" to temp file.\n",
                      notVerified = "Volume verification for \"k1\" failed ";
    const std::string removed = "ubinfo ubirmvol ", created = removed + "ubimkvol ",
                      found = created + "ubinfo ";
    const std::string half = image.substr(0, image.size() / 2), overlay = volume("k0_data"),
                      kNoVolume = "(none)";
    const struct {
        const char *failure, *source;
        int result;
        std::string message, tools;
        std::string content;  // of the volume afterwards
    } rows[] = {
        {"ubirmvol=signal:KILL", kImage, killed(), notRemoved, removed, image},
        {"ubimkvol=exit:4", kImage, 4, notCreated, created, kNoVolume},
        {"ubimkvol=missing", kImage, 127, notCreated, created, kNoVolume},
        {"ubinfo:1=exit:5", kImage, 255, notCreated, "ubinfo ubimkvol ", image},
        {"ubinfo:2=exit:5", kImage, 5, "", found, ""},
        {"", "/tmp/none", ENOENT, "", found, ""},
        {"cat=half:6", kOverlay, 6, notCopied, found + "cat ", ""},
        {"ubiupdatevol=exit:7", kOverlay, 7, notFlashed, found + "cat ubiupdatevol ", ""},
        {"ubiupdatevol=half:8", kImage, 8, notFlashed, found + "ubiupdatevol ", half},
        {"md5sum=half:9", kImage, EBADF, notVerified + "(32, 9).\n", found + "ubiupdatevol md5sum ", image},
        {"", kOverlay, EBADF, notVerified + "(32, 0).\n", found + "cat ubiupdatevol md5sum ",
         overlay},  // not the image's digest
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string("failure '") + row.failure + "' with " + row.source);
        failCalls("");
        makeVolume("k1", "static");
        EXPECT_EQ(make("k1", kImage, md5), 0);
        failCalls(row.failure);
        EXPECT_EQ(make("k1", row.source, md5), row.result);
        EXPECT_EQ(messages(), row.message);
        EXPECT_EQ(tools(), row.tools);
        EXPECT_TRUE(volume("k1") == row.content);
        EXPECT_FALSE(exists("/tmp/rovu/_img.tmp"));
    }
}

TEST_F(Volumes, DigestMustHave32CharactersAndIsComparedCaseAndAll) {
    for (const std::string& digest : {std::string(), md5.substr(1), md5 + "0"}) {
        SCOPED_TRACE(digest);
        EXPECT_EQ(make("k1", kImage, digest), EINVAL);
        EXPECT_EQ(make("k1", kImage, digest, true), EINVAL);
    }
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(make(std::string(240, 'k'), kImage, md5), -EOVERFLOW);  // a command that does not fit
    EXPECT_EQ(tools(), "");
    std::string upper = md5;
    for (char& c : upper)
        c = static_cast<char>(toupper(c));
    EXPECT_EQ(make("k1", kImage, upper), EBADF);
    std::string otherEnd = md5;
    otherEnd.back() = md5.back() == '0' ? '1' : '0';
    EXPECT_EQ(make("k1", kImage, otherEnd), EBADF);
}

#ifdef SYS_stat
TEST_F(Volumes, AreNodesToTheStatCallsOfMusl) {
    for (const long call : {SYS_stat, SYS_lstat}) {
        struct stat node, file;
        EXPECT_EQ(syscall(call, kOverlay, &node) | syscall(call, kImage, &file), 0);
        EXPECT_TRUE(S_ISCHR(node.st_mode) && S_ISREG(file.st_mode));
    }
}
#endif

TEST_F(Volumes, SourceAndDigestMayBeLeftOut) {
    EXPECT_EQ(makeUbiVolume("k1", kSize, true, nullptr, nullptr, kWorkDir, false), 0);
    EXPECT_EQ(volume("k1"), std::string(kSize, '\xFF'));
    EXPECT_EQ(makeUbiVolume("k1", kSize, false, kImage, nullptr, kWorkDir, false), 0);
    EXPECT_EQ(volume("k1"), image);
    EXPECT_EQ(tools(), "ubinfo ubirmvol ubimkvol ubinfo ubirmvol ubimkvol ubinfo ubiupdatevol ");
}

TEST_F(Volumes, OverlayIsClonedWithItsSizeAndItsBytes) {
    EXPECT_EQ(cloneOverlay(0, 1, kWorkDir, true), 0);
    EXPECT_EQ(tools(), "ubinfo md5sum ubinfo ");
    // The copy is gone before the volume is read back.
    replaceTool("md5sum", "[ ! -e /tmp/rovu/_img.tmp ] && exec /usr/local/bin/md5sum $1\n");
    EXPECT_EQ(cloneOverlay(0, 1, kWorkDir, false), 0);
    EXPECT_TRUE(volume("k1_data") == volume("k0_data"));
    // One that changes between its two readings is found out.
    replaceTool("cat", "printf 'another overlay'\n");
    EXPECT_EQ(cloneOverlay(0, 1, kWorkDir, false), EBADF);
    EXPECT_EQ(cloneOverlay(UINT32_MAX, 1, kWorkDir, false), EOVERFLOW);
    EXPECT_EQ(cloneOverlay(0, UINT32_MAX, kWorkDir, false), EOVERFLOW);
}

// Whole as its output may be, a command whose end is not known has no digest.
TEST_F(Volumes, OverlayIsNotClonedByADigestOfUnknownEnd) {
    const std::string before = volume("k1_data");
    signal(SIGUSR1, [](int) {
        signal(SIGCHLD, SIG_IGN);  // from then on nobody can wait for a command that has not ended
        mkdir("/tmp/rovu/handled", 0700);
    });
    replaceTool("md5sum", "kill -USR1 " + std::to_string(getpid()) +
                              "\nuntil [ -e /tmp/rovu/handled ]; do sleep 0.01; done\n"
                              "exec /usr/local/bin/md5sum $1\n");
    EXPECT_EQ(cloneOverlay(0, 1, kWorkDir, false), EINVAL);
    signal(SIGCHLD, SIG_DFL);
    signal(SIGUSR1, SIG_DFL);
    EXPECT_EQ(messages(), "Failed to calculate overlay MD5 sum (" + std::to_string(-ECHILD) + ", 0).\n");
    EXPECT_EQ(tools(), "ubinfo md5sum ");
    EXPECT_TRUE(volume("k1_data") == before);
}
