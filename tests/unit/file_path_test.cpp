#include "unit_test.h"
#include "util/file.h"
#include "util/path.h"

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr uint32_t kUntouched = 9;

// Calls are interrupted and move two bytes at most.
struct Files : testing::Test {
    Files() { interposed.mostBytes = 2; }

    // Reads into a buffer of 4 bytes, twice: the count need not be asked for.
    int read(const std::string& file, std::string* content) {
        std::string buffer(8, 'z');
        uint32_t got = kUntouched;
        interposed.interruptions = 2;
        const int rc = readFile(file.c_str(), buffer.data(), 4, &got);
        EXPECT_EQ(readFile(file.c_str(), buffer.data(), 4, nullptr), rc);
        EXPECT_TRUE(rc == 0 || got == kUntouched);
        const size_t length = rc == 0 ? got : 0;
        EXPECT_EQ(buffer.substr(length), std::string(8 - length, 'z'));
        *content = buffer.substr(0, length);
        return rc;
    }

    int write(const std::string& file, uint32_t size, bool doClose, bool doSync) {
        const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        interposed.interruptions = 2;
        const int rc = writeFd(fd, "abcde", size, doClose, doSync);
        EXPECT_EQ(close(fd), doClose ? -1 : 0);
        return rc;
    }

    const Interposition calls;
    const ScratchDir dir;
    const std::string path = dir.path + "/f";
};

}  // namespace

TEST_F(Files, AreReadAsFarAsTheyFit) {
    std::string content;
    for (const std::string& whole : {""s, "abc"s, "abcd"s, "abcde"s}) {
        SCOPED_TRACE(whole);
        writeWholeFile(path, whole);
        EXPECT_EQ(read(path, &content), 0);
        EXPECT_EQ(content, whole.substr(0, 4));
    }
    EXPECT_EQ(read(path + "2", &content), ENOENT);
    EXPECT_EQ(read(dir.path, &content), EISDIR);
}

TEST_F(Files, AreWrittenSyncedAndClosedAndTheLastFailureCounts) {
    for (bool doClose : {false, true}) {
        for (uint32_t size : {5U, 0U}) {
            EXPECT_EQ(write(path, size, doClose, true), 0);
            EXPECT_EQ(readWholeFile(path), std::string("abcde", size));
            EXPECT_EQ(write("/dev/null", size, doClose, true), EINVAL);  // it cannot sync
        }
        EXPECT_EQ(write("/dev/full", 5, doClose, false), ENOSPC);
        EXPECT_EQ(write("/dev/full", 5, doClose, true), EINVAL);
    }
    interposed.interruptions = 0;
    interposed.refusesClose = true;
    EXPECT_EQ(write("/dev/full", 5, true, true), EIO);
    std::string content;
    EXPECT_EQ(read(path, &content), EIO);
    interposed.refusesClose = false;
    EXPECT_EQ(writeFd(-1, "abc", 3, false, false), EBADF);
    EXPECT_EQ(writeFd(-1, "abc", 0, false, true), EBADF);
    EXPECT_EQ(writeFd(-1, "abc", 0, true, false), EBADF);
}

TEST(AppendPath, JoinsWithOneSlashAndNormalisesNothing) {
    const struct {
        const char *base, *name, *joined;
    } rows[] = {
        {"a", "b", "a/b"}, {"a/", "b", "a//b"}, {"", "b", "/b"}, {"a", "", "a/"}, {"a/", "../c", "a//../c"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.joined);
        std::string path = row.base, partOfName = row.base;
        EXPECT_EQ(&appendPath(path, row.name), &path);
        EXPECT_EQ(path, row.joined);
        EXPECT_EQ(appendPath(partOfName, (row.name + "xyz"s).c_str(), strlen(row.name)), row.joined);
    }
}
