// A call site is new only once in a process, so these tests do not repeat in one.

#include "log_state.h"
#include "unit_test.h"

#include <csignal>
#include <cstring>
#include <filesystem>
#include <unistd.h>

LOG_MODULE("TEST", "tests/unit");

namespace {

namespace fs = std::filesystem;

// No channel is open at the start, and the current directory is a scratch one.
struct Logging : testing::Test {
    Logging() { fs::current_path(dir.path); }
    ~Logging() override {
        for (LOG_Channel& ch : channels)
            LOG_channel_free((chanInUse >> ch.index & 1) != 0 ? &ch : nullptr);
        errorHook = nullptr;
        fs::current_path(home);
    }

    // A channel with a file of its own.
    static LOG_Channel* open(const char* fileName) {
        LOG_Channel* ch = LOG_channel_new(fopen(fileName, "w"), "file");
        ch->fileName = strdup(fileName);
        LOG_channel_set_levels(ch, LOG_LVL_NOTICE);
        LOG_channel_apply(ch);
        return ch;
    }

    static void log(const char* text) { LOG_MSG(LOG_LVL_NOTICE, "%s", text); }

    static std::string messagesIn(const std::string& fileName) {
        fflush(nullptr);
        return std::regex_replace(readWholeFile(fileName), std::regex("TEST [^\\]]*\\]: "), "");
    }

    const Interposition calls;
    const fs::path home = fs::current_path();
    const ScratchDir dir;
};

}  // namespace

TEST_F(Logging, HasSixSlotsAndTakesTheLowestFreeOne) {
    for (LOG_Channel& ch : channels) {
        ASSERT_EQ(LOG_channel_new(stdout, "12345678"), &ch);
        EXPECT_TRUE(&channels[ch.index] == &ch && ch.levels == 0 && ch.name == "1234567"s);
    }
    EXPECT_EQ(LOG_channel_new(stdout, "seventh"), nullptr);
    LOG_channel_free(&channels[4]);
    LOG_channel_free(&channels[2]);
    EXPECT_EQ(LOG_channel_new(nullptr, "again"), &channels[2]);
}

TEST_F(Logging, TakesALevelOnceItIsAppliedOrTheMessageIsNew) {
    const LogCapture capture(0);
    log("unheard");
    LOG_channel_set_levels(capture.channel(), LOG_LVL_NOTICE | LOG_LVL_ERROR);
    log("not applied");
    LOG_MSG(LOG_LVL_NOTICE, "new");
    LOG_channel_apply(capture.channel());
    log("applied");
    LOG_channel_set_levels(capture.channel(), LOG_LVL_WARNING);
    log("still");
    LOG_channel_apply(capture.channel());
    log("no more");
    LOG_MSG(LOG_LVL_WARNING, "but this");
    EXPECT_EQ(capture.messages(), "TEST: new\nTEST: applied\nTEST: still\nTEST: but this\n");
}

TEST_F(Logging, EvaluatesTheArgumentsOfAnUntakenMessageOnlyOnce) {
    int evaluated = 0;
    LOG_channel_free(LOG_channel_new(nullptr, ""));
    for (int i = 0; i < 3; ++i)
        LOG_MSG(LOG_LVL_ERROR, "%d", ++evaluated);  // at its first use, which registers it
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(errorCount, 1U);
    LOG_channel_set_levels(LOG_channel_new(nullptr, "first"), LOG_LVL_ERROR);
    EXPECT_EQ(errorCount, 0U);  // the channels were all gone
    LOG_MSG(LOG_LVL_ERROR, "counted");
    LOG_channel_new(nullptr, "second");
    EXPECT_EQ(errorCount, 1U);
}

TEST_F(Logging, WritesTheSameLineWithTheTimeInUtcToEveryChannel) {
    setenv("TZ", "ELSEWHERE+7:30", 1);
    tzset();
    interposed.now.tv_sec = 1000000000;
    const auto write = [] { LOG_MSG(LOG_LVL_ERROR, "%s %d%c %.1f", "text", 7, '%', 0.5); };
    const std::string place = "TEST [tests/unit:" + std::to_string(__LINE__ - 1);
    write();  // registers before there is a channel
    const LogCapture first;
    LOG_channel_set_levels(LOG_channel_new(nullptr, "silent"), LOG_LVL_ERROR);
    const LogCapture second;
    write();
    EXPECT_EQ(first.lines(), place + ", 09/09-01:46:40]: text 7% 0.5\n");
    EXPECT_EQ(first.lines(), second.lines());
    unsetenv("TZ");
    tzset();
}

TEST_F(Logging, FlushesTheFirstLineAndThenOnceInAMinute) {
    LOG_Channel* ch = open("log");
    log("one");
    interposed.now.tv_sec += 59;
    log("two");
    EXPECT_EQ(fs::file_size("log"), ch->fileSize / 2);
    ++interposed.now.tv_sec;
    log("six");
    EXPECT_EQ(fs::file_size("log"), ch->fileSize);
}

TEST_F(Logging, RotatesWhenALineHasCrossedTheLimit) {
    const std::pair<std::string, std::string> rows[] = {
        {"a.009", "a.010"}, {"a.999", "a.000"}, {"a1", "a2"}, {"99", "00"}, {"9x9", "9x0"}, {"a.1x", "a.1x"}};
    for (const auto& [name, next] : rows) {
        SCOPED_TRACE(name);
        LOG_Channel* ch = open(name.c_str());
        log("one");
        const uint32_t lineSize = ch->fileSize;
        ch->fileSize = kMaxFileSize - lineSize;
        log("two");
        EXPECT_EQ(ch->fileName, name);
        ch->fileSize = kMaxFileSize + 1 - lineSize;
        log("six");
        log("new");
        EXPECT_EQ(ch->fileName, next);
        EXPECT_EQ(ch->fileSize, lineSize);
        EXPECT_EQ(messagesIn(next), "new\n");
        EXPECT_TRUE(messagesIn(name) == "one\ntwo\nsix\n" || next == name);
        LOG_channel_free(ch);
    }
}

TEST_F(Logging, FallsSilentIfTheNextFileCannotBeOpened) {
    fs::create_directory("d");
    LOG_Channel* ch = open("d/log.1");
    fs::remove_all("d");
    ch->fileSize = 0x1FF00;
    testing::internal::CaptureStderr();
    log("crosses");
    log("unheard");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to open file \"d/log.2\"\n");
    writeWholeFile(dir.path + "/d/log.2", "somebody else's");
    LOG_channel_free(ch);
    EXPECT_EQ(messagesIn("d/log.2"), "somebody else's");
}

TEST_F(Logging, AFreedChannelClosesItsOwnFileAndRemovesAnEmptyOne) {
    LOG_channel_free(open("empty"));
    EXPECT_FALSE(fs::exists("empty"));
    LOG_Channel* ch = open("used");
    log("line");
    LOG_channel_free(ch);
    EXPECT_EQ(messagesIn("used"), "line\n");
    FILE* stream = fopen("stream", "w");
    ch = LOG_channel_new(stream, "stream");
    log("of no level that it takes");
    LOG_channel_free(ch);
    EXPECT_EQ(fclose(stream), 0);  // still the caller's
    EXPECT_EQ(messagesIn("stream"), "");
}

TEST_F(Logging, AModuleFilterTakesExactlyItsModules) {
    static const LOG_Module kModules[] = {
        {"", {"A"}}, {"", {"AB"}}, {"", {"ABCDEFG"}}, {"", {"ABCDEFH"}}, {"", {"\xC3"}}};
    static LOG_Msg messages[5];
    for (unsigned int filter = 0; filter < 32; ++filter) {
        SCOPED_TRACE(filter);
        const LogCapture capture;
        unsigned int taken = 0;
        for (unsigned int i = 0; i < 5; ++i)
            EXPECT_TRUE((filter >> i & 1) == 0 || capture.channel()->moduleV.append(kModules[i].name));
        LOG_channel_apply(capture.channel());
        for (unsigned int i = 0; i < 5; ++i) {
            if (filter == 0) messages[i] = {&kModules[i], kUnregisteredMask, LOG_LVL_ERROR, 1, nullptr};
            LOG_log_msg(&messages[i], "%s", "");
            taken |= static_cast<unsigned int>(messages[i].chanMask) << i;
        }
        EXPECT_EQ(taken, filter == 0 ? 31 : filter);
    }
}

TEST_F(Logging, TheHookGetsEveryErrorButTheEmptyOneCutToItsBuffer) {
    static std::string hooked;
    hooked.clear();
    errorHook = [](const char* module, const char* sourcePath, unsigned int line, const char* text) {
        hooked += module + " "s + sourcePath + ":" + std::to_string(line) + " " + text + "\n";
    };
    const LogCapture capture(0x1F);
    const std::string x(255, 'x'), y(300, 'y'),
        place = "TEST tests/unit:" + std::to_string(__LINE__ + 2) + " ";
    for (const std::string& text : {x, y, ""s})
        LOG_MSG(LOG_LVL_ERROR, "%s", text.c_str());
    LOG_MSG(LOG_LVL_WARNING, "no error");
    EXPECT_EQ(hooked, place + x + "\n" + place + y.substr(45) + "\n");
    EXPECT_EQ(capture.messages(), "TEST: " + x + "\nTEST: " + y + "\nTEST: \nTEST: no error\n");
}

TEST_F(Logging, ASignalWaitsForTheLockAndItsHandlerMayLog) {
    signal(SIGTERM, [](int) { LOG_MSG(LOG_LVL_WARNING, "from the handler"); });
    errorHook = [](const char*, const char*, unsigned int, const char*) { raise(SIGTERM); };
    const LogCapture capture(LOG_LVL_ERROR | LOG_LVL_WARNING);
    LOG_MSG(LOG_LVL_ERROR, "interrupted");
    EXPECT_EQ(capture.messages(), "TEST: interrupted\nTEST: from the handler\n");
    signal(SIGTERM, SIG_DFL);
}

TEST_F(Logging, AReaderThatIsGoneCostsTheLogOnly) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    FILE* stream = fdopen(ends[1], "w");
    LOG_channel_set_levels(LOG_channel_new(stream, "gone"), LOG_LVL_ERROR);
    signal(SIGPIPE, SIG_DFL);
    errno = EXDEV;
    LOG_MSG(LOG_LVL_ERROR, "lost");
    EXPECT_EQ(errno, EXDEV);
    fclose(stream);
}
