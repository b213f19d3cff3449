// The progress file as other programs see it, the key file, and scripts out of tars.

#include "file_key.h"
#include "inside.h"
#include "progress.h"
#include "scripts.h"
#include "support/crypto.h"
#include "support/program.h"

#include <cstring>

struct ProgressFile : InDevice {
    void expectReport(const std::string& state, const std::string& attempts, const std::string& percent) {
        EXPECT_EQ(readWholeFile("/tmp/rovu.progress"), "\"STATE\":\"" + state + "\",\n\"DL_ATTEMPTS\":\"" +
                                                           attempts + "\",\n\"DL_PERCENT\":\"" + percent +
                                                           "\",\n");
    }

    Downloader downloader{false, false};
};

TEST_F(ProgressFile, NamesEachStateByItsText) {
    int state = eStateInvalid;
    for (const char* text :
         {"invalid", "initializing", "downloading spec", "parsing spec", "checking dependencies",
          "downloading scripts", "running preparation scripts", "downloading images", "running scripts",
          "flashing images", "flashing overlay", "switching volume", "complete", "error"}) {
        setState(static_cast<UpdateState>(state++), nullptr);
        expectReport(text, "0", "0");
        EXPECT_EQ(progress.attempts, -1);
    }
    EXPECT_FALSE(exists("/tmp/rovu/progress.tmp"));
}

TEST_F(ProgressFile, TransferIsReportedOnceASecondIfSomethingChanged) {
    downloader.progress = [](int, int) { ADD_FAILURE() << "the callable from before"; };
    setState(eStateDownloadingImages, &downloader);
    expectReport("downloading images", "0", "0");
    // Seconds since the last report, what is reported, and what stands in the file then.
    const Table<int, int, int, const char*, const char*> rows = {
        {0, 0, 10, "0", "0"},  {1, 0, 10, "0", "10"}, {0, 0, 20, "0", "10"},    {1, 0, 20, "0", "20"},
        {1, 1, 20, "1", "20"}, {0, 2, 30, "1", "20"}, {-1000, 2, 30, "2", "30"}};
    for (const auto& [seconds, attempts, percent, shownAttempts, shownPercent] : rows) {
        progress.lastWrite = time(nullptr) - seconds;
        downloader.progress(attempts, percent);
        expectReport("downloading images", shownAttempts, shownPercent);
    }
    progress.lastWrite = 1;
    downloader.progress(2, 30);  // repeats what stands, and does not count
    EXPECT_EQ(progress.lastWrite, 1);
    downloader.progress(2, 31);
    EXPECT_NE(progress.lastWrite, 1);
}

TEST_F(ProgressFile, StaysAsItWasWithoutAWorkDirectory) {
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
    for (int32_t offset : {-1, -1000}) {
        key.present = true;
        EXPECT_EQ(loadFileKey(offset, &key), 0);
        EXPECT_FALSE(key.present);
    }
    EXPECT_EQ(loadFileKey(0, &key), ENOENT);
    for (const std::string& before : {std::string(), std::string("12345")}) {
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

TEST_F(Scripts, ResultIsThatOfTheCommandAndTheScriptIsGoneAfterwards) {
    const std::string notExtracted = "Failed to extract \"a/script\"\n";
    const std::string notRun = "Failed to run script \"/tmp/rovu/a/script\"\n";
    const Table<const char*, const char*, int, std::string> rows = {
        {"true", "", 0, ""},
        {"rm $0", "", 0, ""},
        {"exit 7", "", 7, notRun},
        {"kill -9 $$", "", killed(), notRun},
        {"true", "tar=exit:2", 2, notExtracted},
        {"true", "tar=signal:KILL", killed(), notExtracted},
        {"true", "sh=exit:9", 9, notRun}};
    for (const auto& [script, rule, result, said] : rows) {
        makeTar(script);
        failCalls(rule);
        EXPECT_EQ(runScript(kWorkDir, "tar", "a/script"), result) << script << rule;
        EXPECT_EQ(messages(), said);
        EXPECT_FALSE(exists("/tmp/rovu/a/script"));
    }
}

TEST_F(Scripts, RunWhereTheProgramRunsWithItsEnvironment) {
    makeTar("echo \"$PWD $MARK $0\" > /tmp/rovu/seen\n");
    setenv("MARK", "here", 1);
    char directory[4096];
    EXPECT_EQ(runScript(kWorkDir, "tar", "a/script"), 0);
    EXPECT_EQ(readWholeFile("/tmp/rovu/seen"),
              std::string(getcwd(directory, sizeof directory)) + " here /tmp/rovu/a/script\n");
    EXPECT_EQ(tools(), "tar sh");
}

TEST_F(Scripts, MemberThatIsMissingOrUnnameableIsNotExtracted) {
    makeTar("true");
    EXPECT_GT(extractFromTar(kWorkDir, "tar", "other"), 0);
    EXPECT_EQ(extractFromTar(kWorkDir, "tar", std::string(256, 'x')), -EOVERFLOW);
    dryRun = true;
    EXPECT_EQ(runScript(kWorkDir, "no tar", "script"), 0);
    dryRun = false;
    EXPECT_EQ(tools(), "tar");
}
