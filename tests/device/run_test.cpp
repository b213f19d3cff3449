// The progress file as other programs see it, the key file, and scripts out of tars.

#include "inside.h"
#include "install/scripts.h"
#include "run/progress.h"
#include "support/crypto.h"
#include "support/program.h"
#include "transfer/fetch.h"

#include <cstring>
#include <ctime>

// The linker leads all that ask for the time here: no second begins amid a test.
extern "C" time_t __wrap_time(time_t*) {
    return 1000000000;
}

struct ProgressFile : InDevice {
    void expectReport(const std::string& state, const std::string& attempts, const std::string& percent) {
        EXPECT_EQ(readWholeFile("/tmp/rovu.progress"), "\"STATE\":\"" + state + "\",\n\"DL_ATTEMPTS\":\"" +
                                                           attempts + "\",\n\"DL_PERCENT\":\"" + percent +
                                                           "\",\n");
    }

    Downloader downloader{false, false};
};

// The other states have commands, in which complete updates show them.
TEST_F(ProgressFile, NamesEachState) {
    const struct {
        UpdateState state;
        const char* name;
    } rows[] = {
        {eStateInvalid, "invalid"},
        {eStateDownloadingSpec, "downloading spec"},
        {eStateParsingSpec, "parsing spec"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        setState(row.state, nullptr);
        expectReport(row.name, "0", "0");
        EXPECT_EQ(progress.attempts, -1);
    }
    EXPECT_FALSE(exists("/tmp/rovu/progress.tmp"));
}

TEST_F(ProgressFile, TransferIsReportedOnceASecondIfItAdvanced) {
    downloader.progress = [](int, int) { ADD_FAILURE() << "the callable from before"; };
    setState(eStateDownloadingImages, &downloader);
    expectReport("downloading images", "0", "0");
    const struct {
        const char* name;
        int secondsSince;  // the last report
        int attempts, percent;
        const char *attemptsInFile, *percentInFile;
    } rows[] = {
        {"too soon", 0, 0, 10, "0", "0"},
        {"after a second", 1, 0, 10, "0", "10"},
        {"other percent", 1, 0, 20, "0", "20"},
        {"other attempt", 1, 1, 20, "1", "20"},
        {"both, but too soon", 0, 2, 30, "1", "20"},
        {"after the clock was set back", -1000, 2, 30, "2", "30"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        progress.lastWrite = time(nullptr) - row.secondsSince;
        downloader.progress(row.attempts, row.percent);
        expectReport("downloading images", row.attemptsInFile, row.percentInFile);
    }
    progress.lastWrite = 1;
    downloader.progress(2, 30);  // the same again is not written
    EXPECT_EQ(progress.lastWrite, 1);
    downloader.progress(2, 31);
    EXPECT_NE(progress.lastWrite, 1);
}

TEST_F(ProgressFile, StaysUnchangedWithoutAWorkDirectory) {
    setState(eStateParsingSpec, nullptr);
    rmdir(kWorkDir);
    setState(eStateComplete, nullptr);
    expectReport("parsing spec", "0", "0");
    EXPECT_EQ(progress.state, eStateComplete);
}

TEST_F(InDevice, KeyFileGivesKeyAndIvAtAnOffset) {
    constexpr char kPath[] = "/app0/secrets/rovu/preshared";
    FileKey key = {};
    unlink(kPath);
    key.present = true;
    EXPECT_EQ(loadFileKey(-1, &key), 0);
    EXPECT_FALSE(key.present);
    EXPECT_EQ(loadFileKey(0, &key), ENOENT);
    for (const std::string& before : {std::string(), std::string("12345")}) {
        SCOPED_TRACE(before);
        writeWholeFile(kPath, before + sampleFileKey());
        const int32_t offset = static_cast<int32_t>(before.size());
        EXPECT_EQ(loadFileKey(offset, &key), 0);
        EXPECT_TRUE(key.present);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(key.key), 32) +
                      std::string(reinterpret_cast<char*>(key.iv), 16),
                  sampleFileKey());
        for (int32_t beyond : {1, 17, 47, 48, 1000000})
            EXPECT_EQ(loadFileKey(offset + beyond, &key), EINVAL) << beyond;
    }
}

struct Scripts : InDevice {
    void makeTar(const std::string& script) {
        failCalls("");
        writeWholeFile("/tmp/rovu/in/a/script", script);
        Program({"tar", "-cf", "/tmp/rovu/tar", "-C", "/tmp/rovu/in", "a/script"}).wait();
        failCalls("");
    }
};

TEST_F(Scripts, EndWithTheResultOfTheCommandAndAreRemoved) {
    const std::string notExtracted = "Failed to extract \"a/script\"\n";
    const std::string notRun = "Failed to run script \"/tmp/rovu/a/script\"\n";
    const struct {
        const char *script, *failure;
        int result;
        std::string message;
    } rows[] = {
        {"true", "", 0, ""},
        {"rm $0", "", 0, ""},
        {"exit 7", "", 7, notRun},
        {"kill -9 $$", "", killed(), notRun},
        {"true", "tar=signal:KILL", killed(), notExtracted},
        {"true", "sh=exit:9", 9, notRun},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string("script '") + row.script + "', failure '" + row.failure + "'");
        makeTar(row.script);
        failCalls(row.failure);
        EXPECT_EQ(runScript(kWorkDir, "tar", "a/script"), row.result);
        EXPECT_EQ(messages(), row.message);
        EXPECT_FALSE(exists("/tmp/rovu/a/script"));
    }
    EXPECT_EQ(extractFromTar(kWorkDir, "tar", std::string(256, 'x')), -EOVERFLOW);
}
