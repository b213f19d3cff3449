// What a signal handler calls in place of the C library.

#include "unit_test.h"
#include "utc.h"
#include "util/remove_tree.h"

#include <cstdint>
#include <ctime>
#include <filesystem>

namespace fs = std::filesystem;

TEST(Utc, IsBrokenDownAsTheCLibraryDoes) {
    // A prime number of seconds meets every month, leap years with and without a century, and every second of a day.
    constexpr time_t kStep = 86399 * 5;
    for (time_t now = -4000000000; now < 16000000000; now += kStep) {
        SCOPED_TRACE(now);
        struct tm expected;
        struct tm actual;
        gmtime_r(&now, &expected);
        breakDownUtc(now, &actual);
        ASSERT_EQ(actual.tm_mon, expected.tm_mon);
        ASSERT_EQ(actual.tm_mday, expected.tm_mday);
        ASSERT_EQ(actual.tm_hour, expected.tm_hour);
        ASSERT_EQ(actual.tm_min, expected.tm_min);
        ASSERT_EQ(actual.tm_sec, expected.tm_sec);
    }
}

TEST(RemoveTree, RemovesEverythingAndFollowsNoLink) {
    const ScratchDir scratch;
    const std::string kept = scratch.path + "/kept/file";
    writeWholeFile(kept, "kept");
    const std::string tree = scratch.path + "/tree";
    // More than one reading of the folder gives, below folders of their own too.
    for (int i = 0; i < 300; ++i)
        writeWholeFile(tree + "/a/" + std::to_string(i % 3) + "/a-name-of-some-length-" + std::to_string(i),
                       "x");
    fs::create_symlink("../kept", tree + "/link");
    fs::create_symlink("nowhere", tree + "/a/dangling");
    fs::create_directories(tree + "/empty");
    EXPECT_EQ(removeTree(tree.c_str()), 0);
    EXPECT_FALSE(fs::exists(tree));
    EXPECT_EQ(readWholeFile(kept), "kept");
}

TEST(RemoveTree, ReportsWhatIsNoFolderOrNotThere) {
    const ScratchDir scratch;
    const std::string file = scratch.path + "/file";
    writeWholeFile(file, "kept");
    fs::create_directory_symlink(scratch.path, scratch.path + "/link");
    EXPECT_EQ(removeTree(file.c_str()), ENOTDIR);
    EXPECT_EQ(removeTree((scratch.path + "/link").c_str()), ENOTDIR);
    EXPECT_EQ(removeTree((scratch.path + "/absent").c_str()), ENOENT);
    EXPECT_EQ(readWholeFile(file), "kept");
}
