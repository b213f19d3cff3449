#include "unit_test.h"
#include "util/file.h"

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr uint32_t kUntouched = 9;

// Calls are interrupted and move two bytes at most.
struct Files : testing::Test {
    Files() { interposed.mostBytes = 2; }

    // What a buffer of 4 bytes gets, or why it does not; the count need not be asked for.
    std::string read(const std::string& file) {
        std::string buffer(8, 'z');
        uint32_t got = kUntouched;
        interposed.interruptions = 2;
        const int rc = readFile(file.c_str(), buffer.data(), 4, &got);
        EXPECT_EQ(readFile(file.c_str(), buffer.data(), 4, nullptr), rc);
        EXPECT_EQ(got == kUntouched, rc != 0);
        EXPECT_EQ(buffer.find_last_not_of('z') + 1, rc == 0 ? got : 0);
        return rc == 0 ? buffer.substr(0, got) : strerror(rc);
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
    for (const std::string& whole : {""s, "abc"s, "abcd"s, "abcde"s}) {
        writeWholeFile(path, whole);
        EXPECT_EQ(read(path), whole.substr(0, 4));
    }
    EXPECT_EQ(read(path + "2"), strerror(ENOENT));
    EXPECT_EQ(read(dir.path), strerror(EISDIR));
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
    EXPECT_EQ(read(path), strerror(EIO));
    interposed.refusesClose = false;
    EXPECT_EQ(writeFd(-1, "abc", 3, false, false), EBADF);
    EXPECT_EQ(writeFd(-1, "abc", 0, false, true), EBADF);
    EXPECT_EQ(writeFd(-1, "abc", 0, true, false), EBADF);
}
