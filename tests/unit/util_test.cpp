#include "support/update.h"
#include "unit_test.h"
#include "util/command.h"
#include "util/file.h"
#include "util/fletcher32.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <tuple>
#include <unistd.h>

namespace {

constexpr int kUntouched = 77;

const char kNotRead[] = "not read", kFull[] = "buffer full", kAll[] = "all output";

using Result = std::tuple<int32_t, std::string, std::string, int>;  // bytes, output, end, exit status

// Runs the command twice: what is not asked for changes nothing else.
Result run(const char* command, uint32_t outSize) {
    char out[8] = "zzzzzzz";
    int exitStatus = kUntouched, eof = kUntouched;
    const int32_t result = runCommand(command, out, outSize, &exitStatus, &eof);
    const size_t length = static_cast<size_t>(std::max(result, 0));
    EXPECT_EQ(out[outSize], 'z');
    EXPECT_TRUE(outSize == 0 || out[length] == '\0');
    EXPECT_EQ(runCommand(command, out, outSize, nullptr, nullptr), result);
    const char* const end = eof == 0 ? kFull : kAll;
    return {result, std::string(out, length), eof == kUntouched ? kNotRead : end, exitStatus};
}

}  // namespace

TEST(Command, GivesTheHeadOfTheOutputAndTheExitStatus) {
    signal(SIGPIPE, SIG_DFL);  // as a child inherits it
    const struct {
        const char* command;
        uint32_t outSize;
        Result expected;
    } rows[] = {
        {"echo abc; exit 3", 6, {4, "abc\n", kAll, 3}},
        {"printf abcde", 6, {5, "abcde", kFull, 0}},
        {"printf abcdef", 6, {5, "abcde", kFull, 0}},
        {"exec yes 2>/dev/null", 6, {5, "y\ny\ny", kFull, -1}},
        {"printf a; sleep 0.02; printf b", 6, {2, "ab", kAll, 0}},
        {"exit 255", 6, {0, "", kAll, 255}},
        {"printf x; kill -9 $$", 6, {1, "x", kAll, -1}},
        {"no-such-program 2>&-", 6, {0, "", kAll, 127}},
        {"exec yes 2>/dev/null", 1, {0, "", kFull, -1}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        EXPECT_EQ(run(row.command, row.outSize), row.expected);
    }
}

TEST(Command, WithoutCaptureHasTheCallersStreamsAndLogsItsStatus) {
    const LogCapture log(LOG_LVL_DEBUG);
    testing::internal::CaptureStdout();
    EXPECT_EQ(runCommand("echo visible; kill -9 $$", nullptr, 0, nullptr, nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "visible\n");
    EXPECT_EQ(log.messages(), "UTIL: Running shell command: echo visible; kill -9 $$\n"
                              "UTIL: Command finished with exit status 4294967295\n");
    EXPECT_EQ(run("exit 4", 0), (Result{0, "", kNotRead, 4}));
}

TEST(Command, ThatCannotBeStartedOrWaitedForHasNoStatus) {
    const Interposition calls;
    const auto before = signal(SIGCHLD, SIG_IGN);  // the system forgets how children end
    EXPECT_EQ(run("true", 0), (Result{-ECHILD, "", kNotRead, kUntouched}));
    EXPECT_EQ(run("true", 6), (Result{-ECHILD, "", kAll, kUntouched}));
    signal(SIGCHLD, before);
    interposed.shellLine = "";
    errno = EPERM;  // of something earlier
    EXPECT_EQ(run("true", 6), (Result{-1, "", kNotRead, kUntouched}));
}

TEST(Command, FormattedToMoreThan255CharactersDoesNotRun) {
    const LogCapture log;
    char out[8] = "zzzzzzz";
    int exitStatus = kUntouched, eof = kUntouched;
    EXPECT_EQ(runCommandF(out, 8, &exitStatus, &eof, "echo %0251d", 1), EOVERFLOW);
    EXPECT_TRUE(*out == 'z' && exitStatus == kUntouched && eof == kUntouched);
    EXPECT_EQ(log.messages(), "UTIL: Command exceeds buffer size\n");
    EXPECT_EQ(runCommandF(out, 8, &exitStatus, &eof, "echo %0250d", 1), 7);
    EXPECT_EQ(runCommandF(out, 8, &exitStatus, &eof, "echo '%s'%u", "a b", 7U), 5);
    EXPECT_STREQ(out, "a b7\n");
}

namespace {

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

namespace {

uint32_t checksumOf(const std::string& bytes, size_t firstPiece = 0) {
    alignas(uint16_t) char words[4096] = {};
    bytes.copy(words, sizeof words);
    zem::Fletcher32 checksum;
    checksum.add(reinterpret_cast<const uint16_t*>(words), firstPiece);
    checksum.add(reinterpret_cast<const uint16_t*>(words + firstPiece), bytes.size() - firstPiece);
    return checksum.value();
}

}  // namespace

TEST(Fletcher32, FollowsItsDefinitionForEveryLengthAndEveryPieces) {
    for (size_t words : {1U, 2U, 358U, 359U, 360U, 361U, 718U, 719U, 2000U}) {
        SCOPED_TRACE(words);
        std::string counting;
        while (counting.size() < 2 * words)
            counting += static_cast<char>(counting.size() * 7 + counting.size() / 256);
        for (const std::string& bytes : {counting, std::string(2 * words, '\xFF')}) {
            EXPECT_EQ(checksumOf(bytes), fletcher32(bytes));
            EXPECT_EQ(checksumOf(bytes, words / 2 * 2), fletcher32(bytes));
        }
    }
}

TEST(Version, TakesUpToFourClampedFields) {
    const struct {
        const char* text;
        int result;
        const char* allFields;  // "none": nothing is written
    } rows[] = {
        {"1.2.3.4", 0, "1.2.3.4"},
        {"1.2", 0, "1.2.0.0"},
        {"7", 0, "7.0.0.0"},
        {"1.", 0, "1.0.0.0"},
        {"1..2", 0, "1.0.0.0"},
        {"1.2.3..", 0, "1.2.3.0"},
        {"1.2.3.4.5", 0, "1.2.3.4"},
        {"007", 0, "7.0.0.0"},
        {"65534.1", 0, "65534.1.0.0"},
        {"70000.1", 0, "65535.1.0.0"},  // clamped, never wrapped
        {"1.65536.65537", 0, "1.65535.65535.0"},
        {"4294967296.1", 0, "65535.1.0.0"},
        {"4294967295.0.4294967297", 0, "65535.0.65535.0"},
        {"18446744073709551617.1", 0, "65535.1.0.0"},
        {"99999999999999999999999999999", 0, "65535.0.0.0"},
        {".5", EINVAL, "none"},
        {".", EINVAL, "none"},
        {"", EINVAL, "none"},
        {"-1", EILSEQ, "none"},
        {"1.2a", EILSEQ, "none"},
        {"1.2.3.4.x", EILSEQ, "none"},
        {" 1", EILSEQ, "none"},
        {".x", EILSEQ, "none"},
        {"1\xB2", EILSEQ, "none"},
    };
    constexpr PackedVersion kNoVersion = 0xDEADBEEF;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        PackedVersion version = kNoVersion;
        char allFields[32];
        EXPECT_EQ(parseVersion(&version, row.text), row.result);
        EXPECT_STREQ(version == kNoVersion ? "none" : formatVersion(version, allFields, sizeof allFields),
                     row.allFields);
    }
}
