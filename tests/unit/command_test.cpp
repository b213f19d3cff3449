#include "unit_test.h"
#include "util/command.h"

#include <algorithm>
#include <csignal>

namespace {

constexpr int kUntouched = 77;

enum End { eNotRead, eBufferFull, eEndOfOutput };

struct Result {
    int32_t result;  // bytes of output, or negative
    std::string output;
    End end;
    int exitStatus;
};

bool operator==(const Result& a, const Result& b) {
    return a.result == b.result && a.output == b.output && a.end == b.end && a.exitStatus == b.exitStatus;
}

// What a failed comparison shows.
std::ostream& operator<<(std::ostream& out, const Result& result) {
    return out << "result " << result.result << ", output \"" << result.output << "\", end " << result.end
               << ", exit status " << result.exitStatus;
}

// Runs the command twice: what is not asked for changes nothing else.
Result run(const char* command, uint32_t outSize) {
    char out[8] = "zzzzzzz";
    int exitStatus = kUntouched, eof = kUntouched;
    const int32_t result = runCommand(command, out, outSize, &exitStatus, &eof);
    const size_t length = static_cast<size_t>(std::max(result, 0));
    EXPECT_EQ(out[outSize], 'z');
    EXPECT_TRUE(outSize == 0 || out[length] == '\0');
    EXPECT_EQ(runCommand(command, out, outSize, nullptr, nullptr), result);
    const End end = eof == kUntouched ? eNotRead : eof == 0 ? eBufferFull : eEndOfOutput;
    return {result, std::string(out, length), end, exitStatus};
}

}  // namespace

TEST(Command, GivesTheHeadOfTheOutputAndTheExitStatus) {
    signal(SIGPIPE, SIG_DFL);  // as a child inherits it
    const struct {
        const char* command;
        Result expected;
    } rows[] = {
        {"echo abc; exit 3", {4, "abc\n", eEndOfOutput, 3}},
        {"printf abcde", {5, "abcde", eBufferFull, 0}},
        {"printf abcdef", {5, "abcde", eBufferFull, 0}},
        {"exec yes 2>/dev/null", {5, "y\ny\ny", eBufferFull, -1}},
        {"printf a; sleep 0.02; printf b", {2, "ab", eEndOfOutput, 0}},
        {"exit 255", {0, "", eEndOfOutput, 255}},
        {"printf x; kill -9 $$", {1, "x", eEndOfOutput, -1}},
        {"no-such-program 2>&-", {0, "", eEndOfOutput, 127}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        EXPECT_EQ(run(row.command, 6), row.expected);
    }
    EXPECT_EQ(run("exec yes 2>/dev/null", 1), (Result{0, "", eBufferFull, -1}));
}

TEST(Command, WithoutCaptureHasTheCallersStreamsAndLogsItsStatus) {
    const LogCapture log(LOG_LVL_DEBUG);
    testing::internal::CaptureStdout();
    EXPECT_EQ(runCommand("echo visible; kill -9 $$", nullptr, 0, nullptr, nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "visible\n");
    EXPECT_EQ(log.messages(), "UTIL: Running shell command: echo visible; kill -9 $$\n"
                              "UTIL: Command finished with exit status 4294967295\n");
    EXPECT_EQ(run("exit 4", 0), (Result{0, "", eNotRead, 4}));
}

TEST(Command, ThatCannotBeStartedOrWaitedForHasNoStatus) {
    const Interposition calls;
    const auto before = signal(SIGCHLD, SIG_IGN);  // the system forgets how children end
    EXPECT_EQ(run("true", 0), (Result{-ECHILD, "", eNotRead, kUntouched}));
    EXPECT_EQ(run("true", 6), (Result{-ECHILD, "", eEndOfOutput, kUntouched}));
    signal(SIGCHLD, before);
    interposed.shellLine = "";
    errno = EPERM;  // of something earlier
    EXPECT_EQ(run("true", 6), (Result{-1, "", eNotRead, kUntouched}));
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
