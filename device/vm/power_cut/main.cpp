// Every power cut in a recorded update: replays the log of the disk's writes, judges every state that a cut can
// leave, and boots some of them.

#include "boot_queue.h"
#include "disk.h"
#include "files.h"
#include "tally.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <stdexcept>

namespace {

constexpr char kUsage[] =
    "usage: rovu-vm-power-cut OPTION=VALUE...\n"
    "  images=FOLDER   the images of the versions 2.0 and 3.0\n"
    "  disk=FILE       the disk before the update, which runs 2.0 in set 1\n"
    "  log=FILE        the log of the disk's writes while it was updated to 3.0 in set 0\n"
    "  key=FILE        what /app0/secrets/rovu/preshared holds\n"
    "  work=FOLDER     for files of its own\n"
    "  boots=N|all     how many states to boot; all: those after the volumes began to be switched, and 100 before\n"
    "  boot=PROGRAM    device/vm/boot\n"
    "  files=IMAGE     what the booted devices serve to themselves\n"
    "  command=FILE    what the booted devices run\n"
    "  owner=TEXT      what the owner's file on them holds\n";

constexpr size_t kSpread = 100;  // boots before the volumes are switched, if all are booted

class Options {
public:
    Options(int argc, char** argv) {
        for (int i = 1; i < argc; ++i) {
            const char* equals = strchr(argv[i], '=');
            if (equals == nullptr) throw std::invalid_argument(argv[i]);
            values_[std::string(argv[i], static_cast<size_t>(equals - argv[i]))] = equals + 1;
        }
    }

    const std::string& operator[](const char* name) const {
        const auto found = values_.find(name);
        if (found == values_.end()) throw std::invalid_argument(std::string(name) + "= is missing");
        return found->second;
    }

private:
    std::map<std::string, std::string> values_;
};

// State "switching volume" writes the new reference files first, and then the environment. Nothing else writes either.
size_t findSwitching(const std::vector<LogEntry>& log, const ExpectedSet& next) {
    const std::string record = next.kernel.md5 + " " + next.kernelVolume() + "\n";
    for (size_t number = 0; number < log.size(); ++number) {
        const LogEntry& entry = log[number];
        if (overlap(entry.range, kEnvironment)) return number;
        if (overlap(entry.range, kApp0) && entry.data.find(record) != std::string_view::npos) return number;
    }
    return log.size();
}

struct Recording {
    std::string disk;
    std::string logBytes;
    std::vector<LogEntry> log;
    size_t switching = 0;  // the first entry of it
};

Recording readRecording(const Options& options, const ExpectedSets& sets) {
    Recording recording;
    recording.disk = readFileOrThrow(options["disk"]);
    recording.logBytes = readFileOrThrow(options["log"]);
    recording.log = parseWriteLog(recording.logBytes);
    recording.switching = findSwitching(recording.log, sets.next);
    printf("%zu writes and flushes; ", recording.log.size());
    if (recording.switching == recording.log.size())
        printf("the volumes are never switched\n\n");
    else
        printf("the volumes are switched from number %zu on\n\n", recording.switching);
    return recording;
}

// Judges all states; false if one of them is wrong.
bool judgeAll(const Recording& recording, const ExpectedSets& sets, App0Reader* app0, Selection* selection) {
    Tally tally;
    Judge judge(sets, app0, recording.disk);
    Replay(recording.disk, recording.log).forEachState([&](const CutState& state) {
        const Verdict verdict = judge.judge(state);
        const bool isSwitching = state.cut.entry >= recording.switching;
        tally.add(state.cut, isSwitching, verdict, describeCut(state.cut, recording.log));
        selection->add(state, isSwitching, verdict);
    });
    tally.print();
    printf("%zu different contents of /app0\n", app0->count());
    return !tally.hasFaults();
}

bool run(const Options& options) {
    const ExpectedSets sets = {readExpectedSet(options["images"], "2.0", 1),
                               readExpectedSet(options["images"], "3.0", 0)};
    const std::string& work = options["work"];
    std::filesystem::create_directories(work + "/app0");
    const std::string keyFile = readFileOrThrow(options["key"]);
    const Recording recording = readRecording(options, sets);
    App0Reader app0(work + "/app0", keyFile);
    Selection selection;
    const bool isSound = judgeAll(recording, sets, &app0, &selection);

    const std::string& boots = options["boots"];
    const size_t most = boots == "all" ? SIZE_MAX : std::stoul(boots);
    if (most == 0) return isSound;
    const std::vector<Candidate> chosen = selection.choose(most, kSpread);
    printf("\nBooting %zu of these states, and updating each again\n", chosen.size());
    fflush(stdout);
    const BootOptions bootOptions = {options["boot"],  options["files"], options["command"], work,
                                     options["owner"], keyFile};
    return BootQueue(bootOptions, sets, recording.log, chosen).bootAll(recording.disk) && isSound;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(Options(argc, argv)) ? 0 : 1;
    } catch (const std::invalid_argument& error) {
        fprintf(stderr, "rovu-vm-power-cut: %s\n%s", error.what(), kUsage);
        return 2;
    } catch (const std::exception& error) {
        fprintf(stderr, "rovu-vm-power-cut: %s\n", error.what());
        return 1;
    }
}
