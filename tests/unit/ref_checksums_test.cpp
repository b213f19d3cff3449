#include "ubi_tools/ref_checksums.h"
#include "unit_test.h"
#include "util/fletcher32.h"

#include <filesystem>
#include <map>

namespace {

namespace fs = std::filesystem;

using Files = std::map<std::string, std::string>;  // contents by name
const char* const kDirectory = "(a directory)";

const std::string kSum0(32, '0'), kSum1(32, '1');
const RefChecksumList kOne = {{"k1", kSum0}}, kTwo = {{"k1", kSum0}, {"k1_root", kSum1}},
                      kOld = {{"old", "entry"}};
const std::string kOneText = kSum0 + " k1\n#FLET32:11805478\n";
const std::string kTwoText = kSum0 + " k1\n" + kSum1 + " k1_root\n#FLET32:28aca539\n";

struct RefChecksums : testing::Test {
    void arrange(const Files& files) {
        for (const auto& entry : fs::directory_iterator(dir.path))
            fs::remove_all(entry);
        for (const auto& [name, content] : files)
            writeWholeFile(path(name) + (content == kDirectory ? "/occupied" : ""), content);
    }

    Files files() const {
        Files found;
        for (const auto& entry : fs::directory_iterator(dir.path))
            found[entry.path().filename()] = entry.is_directory() ? kDirectory : readWholeFile(entry.path());
        return found;
    }

    std::string path(const std::string& name) const { return dir.path + "/" + name; }
    int update(const RefChecksumList& list) { return updateRefFiles(list, path("1"), path("2")); }
    int restore() { return restoreRefFiles(path("1"), path("2")); }

    // The log without the module and the directory.
    std::string messages(const LogCapture& log) const {
        return std::regex_replace(log.messages(), std::regex(dir.path + "/|UBI: "), "");
    }

    const ScratchDir dir;
    const Interposition calls;
};

// Lines with the checksum line that belongs to them.
std::string sealed(const std::string& lines) {
    alignas(uint16_t) char words[2048] = {};
    lines.copy(words, sizeof words);
    zem::Fletcher32 sum;
    sum.add(reinterpret_cast<const uint16_t*>(words), (lines.size() + 1) / 2 * 2);
    char line[32];
    snprintf(line, sizeof line, "#FLET32:%08x\n", sum.value());
    return lines + line;
}

}  // namespace

TEST_F(RefChecksums, AreWrittenAsTheFormatHasItOrNotAtAll) {
    const std::pair<RefChecksumList, std::string> kTexts[] = {
        {{}, "#FLET32:ffffffff\n"}, {kOne, kOneText}, {kTwo, kTwoText}};
    for (const auto& [list, text] : kTexts) {
        EXPECT_EQ(writeRefFile(list, path("f")), 0);
        EXPECT_EQ(readWholeFile(path("f")), text);
    }
    arrange({});
    const size_t room = 2047 - 17 - 2;  // without the checksum line, a blank and a line feed
    for (size_t length : {room + 1, room + 16, room + 17, size_t{5000}})
        EXPECT_EQ(writeRefFile({{std::string(length, 'v'), ""}}, path("f")), ENOBUFS);
    fs::create_symlink("/dev/full", path("f"));
    EXPECT_NE(writeRefFile(kOne, path("f")), 0);
    EXPECT_EQ(files(), Files());
    EXPECT_EQ(writeRefFile({{std::string(room, 'v'), ""}}, path("f")), 0);
    EXPECT_EQ(readWholeFile(path("f")).size(), 2047U);
}

TEST_F(RefChecksums, AFileIsReadIfItsSumIsRight) {
    const std::pair<std::string, RefChecksumList> kGood[] = {
        {"#FLET32:ffffffff\n", {}},
        {kOneText, kOne},
        {kOneText + "more " + kTwoText, kOne},
        {kSum0 + " k1\n" + kSum1 + " k1_root\n#FLET32:28ACA539", kTwo},
        {sealed(std::string(2031, '\n')), {}},
        {sealed("word\n\n \t\n\ta \t b c d\na b\n"), {{"b", "a"}, {"b", "a"}}}};
    for (const auto& [text, expected] : kGood) {
        RefChecksumList list = kOld;
        arrange({{"f", text}});
        EXPECT_EQ(readRefFile(&list, path("f")), 0);
        EXPECT_EQ(list, expected) << text;
    }
    const LogCapture log(LOG_LVL_WARNING);
    RefChecksumList list = kOld;
    for (const std::string& text :
         {"1" + kOneText.substr(1), kSum0 + " k1\n#FLET32:11805479\n", "a b\n"s, "a b\n#FLET32:\n"s,
          "a b\n#FLET32:xyz\n"s, ""s, sealed(std::string(2040, '\n'))}) {
        arrange({{"f", text}});
        EXPECT_EQ(readRefFile(&list, path("f")), EILSEQ) << text;
    }
    EXPECT_EQ(readRefFile(&list, path("missing")), ENOENT);
    EXPECT_EQ(list, kOld);
    const std::string warning = "Inconsistent file f, checksum should be 0x";
    EXPECT_EQ(messages(log), warning + "23805578\n" + warning + "11805478\n");  // of the first two texts
}

TEST_F(RefChecksums, SettingAVolumeKeepsTheOrder) {
    RefChecksumList list = {{"k0", "a"}, {"k1", "b"}, {"k1", "c"}};
    setRefChecksum(&list, "k1", "new");
    setRefChecksum(&list, "k", "last");
    EXPECT_EQ(list, (RefChecksumList{{"k0", "a"}, {"k1", "new"}, {"k1", "c"}, {"k", "last"}}));
}

TEST_F(RefChecksums, AnUpdateReplacesBothFilesAndARestorePutsThemBack) {
    const std::string& text = kTwoText;
    for (const Files& before :
         {Files{}, Files{{"1", "a"}}, Files{{"2", "b"}}, Files{{"1", "a"}, {"2", "b"}}}) {
        Files updated = {{"1", text}, {"2", text}}, restored = updated;
        for (const auto& [name, content] : before) {
            updated[name + ".bak"] = content;
            restored[name] = content;
        }
        arrange(before);
        if (before.size() == 2) writeWholeFile(path("1.bak"), "leftover");
        EXPECT_EQ(update(kTwo), 0);
        EXPECT_EQ(files(), updated);
        EXPECT_EQ(restore(), before.size() == 2 ? 0 : ENOENT);
        EXPECT_EQ(files(), restored);
    }
    EXPECT_EQ(updateRefFiles(kOne, path("1"), path("1")), EINVAL);
    arrange({{"1.bak", "a"}, {"1", kDirectory}});
    EXPECT_EQ(restore(), ENOENT);  // that of the second one
    arrange({{"1.bak", "a"}, {"1", kDirectory}, {"2.bak", "b"}});
    EXPECT_EQ(restore(), EISDIR);
    EXPECT_EQ(files(), (Files{{"1.bak", "a"}, {"1", kDirectory}, {"2", "b"}}));
}

TEST_F(RefChecksums, AnUpdateThatCannotBeWrittenLeavesEverythingAsItWas) {
    const auto check = [this](const std::string& blocked, const RefChecksumList& list, int result,
                              const std::string& opening) {
        const std::string failed = blocked == "x" ? "1.new" : blocked;
        const Files before = {{"1", "a"}, {"2", "b"}, {blocked, kDirectory}};
        const LogCapture log;
        arrange(before);
        EXPECT_EQ(update(list), result);
        EXPECT_EQ(files(), before);
        EXPECT_EQ(messages(log),
                  opening + "Failed to write " + failed + ": " + std::to_string(result) + "\n");
    };
    check("1.new", kOne, EISDIR, "Failed to open file \"1.new\": " + std::to_string(EISDIR) + "\n");
    check("2.new", kOne, EISDIR, "Failed to open file \"2.new\": " + std::to_string(EISDIR) + "\n");
    check("x", {{std::string(3000, 'v'), ""}}, ENOBUFS, "");
}

TEST_F(RefChecksums, AFailedRenameIsUndoneWithAllBeforeIt) {
    const char* const kMessages[] = {"to 1.bak", "to 2.bak", "from 1.new", "from 2.new"};
    for (const Files& before :
         {Files{}, Files{{"1", "a"}}, Files{{"2", "b"}, {"1.bak", "x"}}, Files{{"1", "a"}, {"2", "b"}}}) {
        for (int failing = 1; failing <= 4; ++failing) {
            const LogCapture log;
            Files after = before;
            // Nothing can be moved back over a first file that is new and in its place.
            if (failing == 4) after.insert({"1", kOneText});
            arrange(before);
            interposed.refusedRename = failing;
            EXPECT_EQ(update(kOne), EIO);
            EXPECT_EQ(files(), after);
            EXPECT_EQ(messages(log), "Failed to rename "s + kMessages[failing - 1] + "\n");
        }
    }
}
