#include "unit_test.h"
#include "util/command.h"

#include <algorithm>
#include <csignal>
#include <tuple>

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
