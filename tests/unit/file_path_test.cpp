#include "unit_test.h"
#include "util/file.h"
#include "util/path.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

// Calls are interrupted and move two bytes at most.
struct Files : testing::Test {
    Files() { interposed.mostBytes = 2; }

    // What a buffer of 4 bytes gets, or the result and the untouched count.
    std::string read(const std::string& file) {
        std::string buffer(8, 'z');
        uint32_t got = 9;
        interposed.interruptions = 2;
        const int rc = readFile(file.c_str(), buffer.data(), 4, &got);
        EXPECT_EQ(readFile(file.c_str(), buffer.data(), 4, nullptr), rc);
        EXPECT_EQ(buffer.substr(rc == 0 ? got : 0), std::string(8 - (rc == 0 ? got : 0), 'z'));
        return rc == 0 ? buffer.substr(0, got) : std::to_string(rc) + " " + std::to_string(got);
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
    for (const char* content : {"", "abc", "abcd", "abcde"}) {
        writeWholeFile(path, content);
        EXPECT_EQ(read(path), std::string(content).substr(0, 4));
    }
    EXPECT_EQ(read(path + "2"), std::to_string(ENOENT) + " 9");
    EXPECT_EQ(read(dir.path), std::to_string(EISDIR) + " 9");
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
    EXPECT_EQ(read(path), std::to_string(EIO) + " 9");
    interposed.refusesClose = false;
    EXPECT_EQ(writeFd(-1, "abc", 3, false, false), EBADF);
    EXPECT_EQ(writeFd(-1, "abc", 0, false, true), EBADF);
    EXPECT_EQ(writeFd(-1, "abc", 0, true, false), EBADF);
}

TEST(AppendPath, JoinsWithOneSlashAndNormalisesNothing) {
    const auto joined = [](const std::string& row) {
        std::string path = row.substr(0, row.find('+')), other = path;
        const std::string name = row.substr(row.find('+') + 1);
        EXPECT_EQ(&appendPath(path, name), &path);
        EXPECT_EQ(appendPath(other, (name + "xyz").c_str(), name.size()), path);
        return path;
    };
    expectRows("a+b => a/b | a/+b => a//b | +b => /b | a+ => a/ | a+/../c => a//../c", joined);
}
