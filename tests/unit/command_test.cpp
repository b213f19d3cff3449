#include "unit_test.h"
#include "util/command.h"

#include <algorithm>
#include <csignal>

namespace {

// The output, or the result of a failure; how its reading ended, or "-"; and the exit status, or 77.
std::string run(const std::string& command, uint32_t outSize) {
    char out[8] = "zzzzzzz";
    int exitStatus = 77, eof = 77;
    const int32_t got = runCommand(command.c_str(), out, outSize, &exitStatus, &eof);
    EXPECT_EQ(out[outSize], 'z');
    EXPECT_TRUE(outSize == 0 || out[std::max(got, 0)] == '\0');
    EXPECT_EQ(runCommand(command.c_str(), out, outSize, nullptr, nullptr), got);
    const std::string head = got < 0 ? std::to_string(got) : std::string(out, static_cast<size_t>(got));
    return head + (eof == 77 ? " - " : eof == 0 ? " cut " : " whole ") + std::to_string(exitStatus);
}

}  // namespace

TEST(Command, GivesTheHeadOfTheOutputAndTheExitStatus) {
    signal(SIGPIPE, SIG_DFL);  // as a child inherits it
    const auto captured = [](const std::string& command) { return run(command, 6); };
    expectRows(
        "echo abc; exit 3 => abc\n whole 3 | printf abcde => abcde cut 0 | printf abcdef => abcde cut 0 | "
        "exec yes 2>/dev/null => y\ny\ny cut -1 | printf a; sleep 0.02; printf b => ab whole 0 | "
        "exit 255 =>  whole 255 | printf x; kill -9 $$ => x whole -1 | no-such-program 2>&- =>  whole 127",
        captured);
    EXPECT_EQ(run("exec yes 2>/dev/null", 1), " cut -1");
}

TEST(Command, WithoutCaptureHasTheCallersStreamsAndLogsItsStatus) {
    const LogCapture log(LOG_LVL_DEBUG);
    testing::internal::CaptureStdout();
    EXPECT_EQ(runCommand("echo visible; kill -9 $$", nullptr, 0, nullptr, nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "visible\n");
    EXPECT_EQ(log.messages(), "UTIL: Running shell command: echo visible; kill -9 $$\n"
                              "UTIL: Command finished with exit status 4294967295\n");
    EXPECT_EQ(run("exit 4", 0), " - 4");
}

TEST(Command, ThatCannotBeStartedOrWaitedForHasNoStatus) {
    const Interposition calls;
    const auto before = signal(SIGCHLD, SIG_IGN);  // the system forgets how children end
    EXPECT_EQ(run("true", 0), std::to_string(-ECHILD) + " - 77");
    EXPECT_EQ(run("true", 6), std::to_string(-ECHILD) + " whole 77");
    signal(SIGCHLD, before);
    interposed.shellLine = "";
    errno = EPERM;  // of something earlier
    EXPECT_EQ(run("true", 6), "-1 - 77");
}

TEST(Command, FormattedToMoreThan255CharactersDoesNotRun) {
    const LogCapture log;
    char out[8] = "zzzzzzz";
    int exitStatus = 77, eof = 77;
    EXPECT_EQ(runCommandF(out, 8, &exitStatus, &eof, "echo %0251d", 1), EOVERFLOW);
    EXPECT_TRUE(*out == 'z' && exitStatus == 77 && eof == 77);
    EXPECT_EQ(log.messages(), "UTIL: Command exceeds buffer size\n");
    EXPECT_EQ(runCommandF(out, 8, &exitStatus, &eof, "echo %0250d", 1), 7);
    EXPECT_EQ(runCommandF(out, 8, &exitStatus, &eof, "echo '%s'%u", "a b", 7U), 5);
    EXPECT_STREQ(out, "a b7\n");
}
