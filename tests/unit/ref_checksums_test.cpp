#include "support/update.h"
#include "ubi_tools/ref_checksums.h"
#include "unit_test.h"

#include <filesystem>
#include <map>

namespace {

namespace fs = std::filesystem;

using Files = std::map<std::string, std::string>;  // contents by name
const char* const kDirectory = "(a directory)";

const std::string kZeros(32, '0'), kOnes(32, '1');
const RefChecksumList kOne = {{"k1", kZeros}}, kTwo = {{"k1", kZeros}, {"k1_root", kOnes}},
                      kOld = {{"old", "entry"}};
const std::string kOneFile = kZeros + " k1\n#FLET32:11805478\n";
const std::string kTwoFile = kZeros + " k1\n" + kOnes + " k1_root\n#FLET32:28aca539\n";

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

    // The traced calls since the last time, where "." is the directory.
    std::vector<std::string> fileCalls() const {
        std::vector<std::string> traced;
        traced.swap(interposed.fileCalls);
        for (std::string& call : traced) {
            call = std::regex_replace(call, std::regex(dir.path + "/"), "");
            call = std::regex_replace(call, std::regex(dir.path), ".");
        }
        return traced;
    }

    const ScratchDir dir;
    const Interposition calls;
};

}  // namespace

TEST_F(RefChecksums, AreWrittenAsTheFormatHasItOrNotAtAll) {
    EXPECT_EQ(writeRefFile({}, path("f")), 0);
    EXPECT_EQ(readWholeFile(path("f")), "#FLET32:ffffffff\n");
    EXPECT_EQ(writeRefFile(kTwo, path("f")), 0);
    EXPECT_EQ(readWholeFile(path("f")), kTwoFile);
    arrange({});
    const size_t room = 2047 - 17 - 2;  // without the checksum line, a space and a newline
    for (size_t length : {room + 1, room + 16, room + 17, size_t{5000}})
        EXPECT_EQ(writeRefFile({{std::string(length, 'v'), ""}}, path("f")), ENOBUFS) << length;
    fs::create_symlink("/dev/full", path("f"));
    EXPECT_NE(writeRefFile(kOne, path("f")), 0);
    EXPECT_EQ(files(), Files());
    EXPECT_EQ(writeRefFile({{std::string(room, 'v'), ""}}, path("f")), 0);
    EXPECT_EQ(readWholeFile(path("f")).size(), 2047U);
}

TEST_F(RefChecksums, AFileIsReadIfItsChecksumIsRight) {
    const std::string warning = "Inconsistent file f, checksum should be 0x";
    const struct {
        const char* name;
        std::string content;
        int result;
        RefChecksumList list;
        std::string message;
    } rows[] = {
        {"no entry", "#FLET32:ffffffff\n", 0, {}, ""},
        {"more after the checksum", kOneFile + "more " + kTwoFile, 0, kOne, ""},
        {"upper case, no last newline", kZeros + " k1\n" + kOnes + " k1_root\n#FLET32:28ACA539", 0, kTwo, ""},
        {"full buffer", referenceFile(std::string(2031, '\n')), 0, {}, ""},
        {"lines of other shapes",
         referenceFile("word\n\n \t\n\ta \t b c d\na b\n"),
         0,
         {{"b", "a"}, {"b", "a"}},
         ""},
        {"changed entry", "1" + kOneFile.substr(1), EILSEQ, kOld, warning + "23805578\n"},
        {"changed checksum", kZeros + " k1\n#FLET32:11805479\n", EILSEQ, kOld, warning + "11805478\n"},
        {"no checksum line", "a b\n", EILSEQ, kOld, ""},
        {"no number as checksum", "a b\n#FLET32:xyz\n", EILSEQ, kOld, ""},
        {"empty file", "", EILSEQ, kOld, ""},
        {"longer than the buffer", referenceFile(std::string(2040, '\n')), EILSEQ, kOld, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LogCapture log(LOG_LVL_WARNING);
        RefChecksumList list = kOld;
        arrange({{"f", row.content}});
        EXPECT_EQ(readRefFile(&list, path("f")), row.result);
        EXPECT_EQ(list, row.list);
        EXPECT_EQ(messages(log), row.message);
    }
    RefChecksumList list = kOld;
    EXPECT_EQ(readRefFile(&list, path("missing")), ENOENT);
    EXPECT_EQ(list, kOld);
}

TEST_F(RefChecksums, SettingAVolumeKeepsTheOrder) {
    RefChecksumList list = {{"k0", "a"}, {"k1", "b"}, {"k1", "c"}};
    setRefChecksum(&list, "k1", "new");
    setRefChecksum(&list, "k", "last");
    EXPECT_EQ(list, (RefChecksumList{{"k0", "a"}, {"k1", "new"}, {"k1", "c"}, {"k", "last"}}));
}

TEST_F(RefChecksums, AnUpdateReplacesBothFilesAndARestorePutsThemBack) {
    for (const Files& before :
         {Files{}, Files{{"1", "a"}}, Files{{"2", "b"}}, Files{{"1", "a"}, {"2", "b"}}}) {
        Files updated = {{"1", kTwoFile}, {"2", kTwoFile}}, restored = updated;
        for (const auto& [name, content] : before) {
            updated[name + ".bak"] = content;
            restored[name] = content;
        }
        SCOPED_TRACE(testing::PrintToString(before));
        arrange(before);
        if (before.size() == 2) writeWholeFile(path("1.bak"), "leftover");
        EXPECT_EQ(update(kTwo), 0);
        EXPECT_EQ(files(), updated);
        EXPECT_EQ(restore(), before.size() == 2 ? 0 : ENOENT);
        EXPECT_EQ(files(), restored);
    }
    arrange({{"1.bak", "a"}, {"1", kDirectory}});
    EXPECT_EQ(updateRefFiles(kOne, path("1"), path("1")), EINVAL);
    EXPECT_EQ(restore(), ENOENT);  // that of the second one
    arrange({{"1.bak", "a"}, {"1", kDirectory}, {"2.bak", "b"}});
    EXPECT_EQ(restore(), EISDIR);
    EXPECT_EQ(files(), (Files{{"1.bak", "a"}, {"1", kDirectory}, {"2", "b"}}));
}

TEST_F(RefChecksums, AFailedRenameIsUndoneWithAllBeforeIt) {
    const char* const kMessages[] = {"to 1.bak", "to 2.bak", "from 1.new", "from 2.new"};
    for (const Files& before :
         {Files{}, Files{{"1", "a"}}, Files{{"2", "b"}, {"1.bak", "x"}}, Files{{"1", "a"}, {"2", "b"}}}) {
        for (int failing = 1; failing <= 4; ++failing) {
            SCOPED_TRACE(testing::PrintToString(before) + kMessages[failing - 1]);
            const LogCapture log;
            Files after = before;
            // Nothing can be moved back over a first file that is new and in its place.
            if (failing == 4) after.insert({"1", kOneFile});
            arrange(before);
            interposed.refusedRename = failing;
            EXPECT_EQ(update(kOne), EIO);
            EXPECT_EQ(files(), after);
            EXPECT_EQ(messages(log), "Failed to rename "s + kMessages[failing - 1] + "\n");
        }
    }
}

// A power cut between any two of these calls leaves a whole record, and the boot loader's variable, which is written
// next, cannot reach the flash before them.
TEST_F(RefChecksums, NewBytesAreOnDiskBeforeANameMovesAndNamesAfter) {
    using Calls = std::vector<std::string>;
    Calls traced = {"write-through 1.new", "fsync 1.new",    "write-through 2.new",
                    "fsync 2.new",         "rename 1 1.bak", "rename 2 2.bak",
                    "rename 1.new 1",      "rename 2.new 2", "fsync ."};
    arrange({{"1", "a"}, {"2", "b"}});
    interposed.tracesFiles = true;
    EXPECT_EQ(update(kTwo), 0);
    EXPECT_EQ(fileCalls(), traced);
    EXPECT_EQ(restore(), 0);
    EXPECT_EQ(fileCalls(), (Calls{"rename 1.bak 1", "rename 2.bak 2", "fsync ."}));
    // The names that a failed rename has put back.
    interposed.refusedRename = 3;
    EXPECT_EQ(update(kTwo), EIO);
    EXPECT_EQ(fileCalls().back(), "fsync .");
    // Each folder, if there are two.
    fs::create_directory(path("b"));
    EXPECT_EQ(updateRefFiles(kOne, path("1"), path("b/2")), 0);
    traced = fileCalls();
    EXPECT_EQ(Calls(traced.end() - 2, traced.end()), (Calls{"fsync .", "fsync b"}));
}
