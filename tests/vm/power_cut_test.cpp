// The judge of power cuts, on short logs made to order: what it must visit, and the faults that it must see.

#include "disk.h"
#include "flash_format.h"
#include "recording/replay.h"
#include "selection.h"
#include "support/crypto.h"
#include "support/scratch.h"
#include "synthetic_disk.h"
#include "verdict/flash_reader.h"
#include "verdict/judge.h"

#include <gtest/gtest.h>
#include <map>
#include <stdexcept>
#include <tuple>

namespace {

constexpr char kRef1[] = ".ubiRefChk1";
constexpr char kRef2[] = ".ubiRefChk2";
const std::string kUndescribed = "a reference file does not describe the set that boots";
const std::string kNotTheOldKernel = "volume k1 is not that of 2.0";

std::string sectors(char byte, size_t count) {
    return std::string(512 * count, byte);
}

// The worlds before and after an update, and between them what a test chooses.
class PowerCut : public ::testing::Test {
protected:
    const ExpectedSets sets_ = syntheticSets();
    const std::string flash_ = syntheticFlash(sets_);
    const std::string oldRef_ =
        refFileContents({sets_.old, {0, "1.0", {"", md5Hex("1")}, {"", md5Hex("2")}}});
    const std::string newRef_ = refFileContents({sets_.old, sets_.next});
    const std::string oldEnvironment_ = environmentCopy("bootswitcher=0A0A01", 1);
    const std::string newEnvironment_ = environmentCopy("bootswitcher=0A0A00", 2);
    const std::string oldApp0_ = syntheticApp0({{kRef1, oldRef_}, {kRef2, oldRef_}});
    const std::string newApp0_ = syntheticApp0({{kRef1, newRef_}, {kRef2, newRef_}});

    // How often each verdict was reached in a replay of these writes on the device before the update.
    std::map<Verdict, size_t> judgeLog(const std::vector<LogEntry>& entries) {
        const std::string bytes = logBytes(entries);
        const std::vector<LogEntry> log = parseWriteLog(bytes);
        const std::string disk = syntheticDisk(flash_, oldEnvironment_, oldApp0_);
        Judge judge(sets_, &app0_, disk);
        std::map<Verdict, size_t> verdicts;
        Replay(disk, log).forEachState([&](const CutState& state) { ++verdicts[judge.judge(state)]; });
        return verdicts;
    }

    // The environment's second copy; as long as it is not complete, the first one holds.
    LogEntry switchSets() const { return writeAt(kEnvironment.offset + 0x10000, newEnvironment_); }

    // The data of the first or the second reference file, in its place.
    LogEntry writeReference(int which) const {
        size_t at = oldApp0_.find(oldRef_);
        if (which == 2) at = oldApp0_.find(oldRef_, at + 1);
        return writeAt(kApp0.offset + at, newRefSector_);
    }

    const ScratchDir scratch_;
    App0Reader app0_{scratch_.path, kSyntheticKey};
    std::string newRefSector_ = newRef_ + std::string(512 - newRef_.size(), '\0');
};

std::vector<std::string> faultsOf(const std::map<Verdict, size_t>& verdicts) {
    std::vector<std::string> faults;
    for (const auto& [verdict, count] : verdicts) {
        if (!verdict.fault.empty()) faults.push_back(verdict.fault);
    }
    return faults;
}

}  // namespace

TEST(WriteLog, IsRefusedIfItIsNotWholeOrNotKnown) {
    const std::string data = sectors('a', 2);
    const std::string whole = logBytes({writeAt(0, data)});
    std::string otherMagic = whole;
    otherMagic[0] = 'x';
    std::string discard = whole;
    discard[512 + 16] = 4;
    std::string moreEntries = whole;
    moreEntries[16] = 2;
    const struct {
        const char* name;
        std::string bytes;
    } rows[] = {{"empty", ""},
                {"another magic", otherMagic},
                {"a discard", discard},
                {"an entry is missing", moreEntries},
                {"the last sector is missing", whole.substr(0, whole.size() - 1)}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_THROW(parseWriteLog(row.bytes), std::runtime_error);
    }
}

TEST(Replay, VisitsEveryCutOnce) {
    const std::string one = sectors('1', 1);
    const std::string two = sectors('2', 2);
    const std::string three = sectors('3', 1);
    const std::vector<LogEntry> log = {writeAt(kApp0.offset, one), writeAt(kApp0.offset + 512, two),
                                       writeAt(kFlash.offset, three), flush(), writeAt(kFlash.offset, three)};
    // The kind of cut, its entry and its detail; whether it is distinct; the first bytes of three sectors of /app0 and
    // that of the flash.
    using Visit = std::tuple<CutKind, size_t, size_t, bool, std::string>;
    const std::vector<Visit> expected = {
        {CutKind::kBetween, 0, 0, true, "100 0"},  {CutKind::kDropped, 0, Cut::kAll, true, "000 0"},
        {CutKind::kTorn, 1, 512, true, "120 0"},   {CutKind::kBetween, 1, 0, true, "122 0"},
        {CutKind::kDropped, 1, 0, true, "022 0"},  {CutKind::kDropped, 1, Cut::kAll, true, "000 0"},
        {CutKind::kBetween, 2, 0, true, "122 3"},  {CutKind::kDropped, 2, 0, true, "022 3"},
        {CutKind::kDropped, 2, 1, true, "100 3"},  {CutKind::kDropped, 2, Cut::kAll, true, "000 3"},
        {CutKind::kBetween, 4, 0, false, "122 3"},
    };
    std::vector<Visit> visited;
    Replay(std::string(kDiskSize, '0'), log).forEachState([&](const CutState& state) {
        const std::string app0 = state.app0();
        const std::string bytes = {app0[0], app0[512], app0[1024], ' ', (*state.prefix)[kFlash.offset]};
        visited.emplace_back(state.cut.kind, state.cut.entry, state.cut.detail, state.isDistinct, bytes);
    });
    EXPECT_EQ(visited, expected);
}

// Reading again only what was written must come to what reading everything comes to.
TEST(FlashReader, FollowsWritesAsIfItReadEverything) {
    const ExpectedSets sets = syntheticSets();
    const std::string good = syntheticFlash(sets);
    std::string flash = good;
    FlashReader reader(flash);
    const size_t sectorsOfInterest[] = {0, 1, 256, 512, 513, 768, 1024, 1025, 1060};
    size_t faults = 0;
    for (const size_t sector : sectorsOfInterest) {
        for (const bool isDamage : {true, false}) {
            SCOPED_TRACE(sector);
            const ByteRange range = {sector * 512, 512};
            flash.replace(range.offset, range.size,
                          isDamage ? sectors('\xFF', 1) : good.substr(range.offset, 512));
            reader.refresh(flash, range);
            for (const ExpectedSet* set : {&sets.old, &sets.next}) {
                const std::string fault = reader.faultOf(flash, *set);
                EXPECT_EQ(fault, FlashReader(flash).faultOf(flash, *set));
                if (!fault.empty()) ++faults;
            }
        }
    }
    EXPECT_GE(faults, 6U) << "headers and data of four volumes, and the table";
    EXPECT_EQ(reader.faultOf(flash, sets.old), "");
}

TEST_F(PowerCut, BootsTheSetOfTheEnvironmentIfItIsComplete) {
    std::string damagedFlash = flash_;
    damagedFlash[2 * kFlashBlockSize + 128] ^= 1;  // in set 1's kernel
    const std::string gap = syntheticApp0({{std::string(kRef1) + ".new", newRef_},
                                           {std::string(kRef2) + ".new", newRef_},
                                           {std::string(kRef1) + ".bak", oldRef_},
                                           {std::string(kRef2) + ".bak", oldRef_}});
    const std::string noFiles = syntheticApp0({});
    const std::string damagedRef = syntheticApp0({{kRef1, oldRef_.substr(1)}, {kRef2, oldRef_}});
    const std::string noEnvironment(kEnvironment.size, '\xFF');
    std::string noKey = oldApp0_;
    noKey.replace(noKey.find("preshared"), 9, "unshared!");
    const struct {
        const char* name;
        const std::string& flash;
        const std::string& environment;
        const std::string& app0;
        Boots boots;
        int references;
        std::string fault;
    } rows[] = {
        {"before", flash_, oldEnvironment_, oldApp0_, Boots::kOld, 2, ""},
        {"after", flash_, newEnvironment_, newApp0_, Boots::kNew, 2, ""},
        {"not switched yet", flash_, oldEnvironment_, newApp0_, Boots::kOld, 2, ""},
        {"in the gap", flash_, oldEnvironment_, gap, Boots::kOld, 0, ""},
        {"switched in the gap", flash_, newEnvironment_, gap, Boots::kNew, 0,
         "the new set boots without reference files"},
        {"switched too early", flash_, newEnvironment_, oldApp0_, Boots::kNew, 2, kUndescribed},
        {"lost", flash_, oldEnvironment_, noFiles, Boots::kOld, 0, "the reference files are lost"},
        {"damaged", flash_, oldEnvironment_, damagedRef, Boots::kOld, 1, "a reference file is damaged"},
        {"key file", flash_, oldEnvironment_, noKey, Boots::kOld, 2, "/app0: the key file is damaged"},
        {"flash", damagedFlash, oldEnvironment_, oldApp0_, Boots::kNeither, 2, kNotTheOldKernel},
        {"other set", damagedFlash, newEnvironment_, newApp0_, Boots::kNew, 2, ""},
        {"environment", flash_, noEnvironment, oldApp0_, Boots::kNeither, 2, "the environment is unreadable"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string disk = syntheticDisk(row.flash, row.environment, row.app0);
        const Verdict verdict = Judge(sets_, &app0_, disk).judge(disk);
        EXPECT_EQ(verdict.boots, row.boots);
        EXPECT_EQ(verdict.references, row.references);
        EXPECT_EQ(verdict.fault, row.fault);
    }
}

TEST_F(PowerCut, SeesWritesThatComeInTheWrongOrder) {
    const std::string erased = sectors('\xFF', 1);
    const struct {
        const char* name;
        std::vector<LogEntry> log;
        std::vector<std::string> faults;
    } rows[] = {
        {"as it must be", {writeReference(1), writeReference(2), flush(), switchSets()}, {}},
        {"the variable first", {switchSets(), writeReference(1), writeReference(2), flush()}, {kUndescribed}},
        {"nothing is flushed", {writeReference(1), writeReference(2), switchSets(), flush()}, {kUndescribed}},
        {"one file late",
         {writeReference(1), flush(), switchSets(), writeReference(2), flush()},
         {kUndescribed}},
        {"the set that runs is erased",
         {writeAt(kFlash.offset + 2 * kFlashBlockSize, erased)},
         {kNotTheOldKernel}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(faultsOf(judgeLog(row.log)), row.faults);
    }
}

// What the figures of a whole update are made of, for one that is as short as it can be.
TEST_F(PowerCut, CountsTheStatesByTheSetTheyBoot) {
    const auto verdicts = judgeLog({writeReference(1), writeReference(2), flush(), switchSets()});
    const size_t sectorsOfCopy = newEnvironment_.size() / 512;
    // Each write, the two with both and with one reference file lost, and the torn ones of the environment.
    EXPECT_EQ(verdicts.at({Boots::kOld, 2, ""}), 2 + 3 + sectorsOfCopy - 1);
    EXPECT_EQ(verdicts.at({Boots::kNew, 2, ""}), 1U);
    EXPECT_EQ(verdicts.size(), 2U);
}

TEST(Selection, BootsEveryDistinctStateOfTheSwitching) {
    const std::string data = sectors('a', 2);
    const std::vector<LogEntry> log = {writeAt(kFlash.offset, data), writeAt(kFlash.offset, data),
                                       writeAt(kFlash.offset + 1024, data), writeAt(kApp0.offset, data)};
    Selection selection;
    Replay(std::string(kDiskSize, '0'), log).forEachState([&](const CutState& state) {
        selection.add(state, state.cut.entry >= 2,
                      {Boots::kOld, state.cut.kind == CutKind::kDropped ? 0 : 2, ""});
    });
    const auto entriesOf = [](const std::vector<Candidate>& chosen) {
        std::vector<size_t> entries;
        for (const Candidate& candidate : chosen)
            entries.push_back(candidate.cut.entry);
        return entries;
    };
    EXPECT_EQ(entriesOf(selection.choose(SIZE_MAX, 100)), (std::vector<size_t>{0, 2, 2, 3, 3}));
    EXPECT_EQ(entriesOf(selection.choose(3, 100)), (std::vector<size_t>{2, 2, 3}));
}
