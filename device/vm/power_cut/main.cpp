// Every power cut in a recorded update: replays the log of the disk's writes, judges every state that a cut can
// leave, and boots some of them.

#include "boot_queue.h"
#include "disk.h"
#include "host/files.h"
#include "tally.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <system_error>

namespace {

constexpr size_t kSpread = 100;  // boots before the volumes are switched, if all are booted

struct Options {
    std::string images, disk, log, key, work, boots;
    BootOptions boot;
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

Fault readRecording(const Options& options, const ExpectedSets& sets, Recording* recording) {
    if (Fault fault = readWholeFile(options.disk, &recording->disk)) return fault;
    if (recording->disk.size() != kDiskSize) return {EINVAL, options.disk + ": the disk has another size"};
    if (Fault fault = readWholeFile(options.log, &recording->logBytes)) return fault;
    if (Fault fault = parseWriteLog(recording->logBytes, &recording->log)) return fault;
    recording->switching = findSwitching(recording->log, sets.next);
    printf("%zu writes and flushes; ", recording->log.size());
    if (recording->switching == recording->log.size())
        printf("the volumes are never switched\n\n");
    else
        printf("the volumes are switched from number %zu on\n\n", recording->switching);
    return {};
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

// `isSound` tells whether all devices survive.
Fault run(Options* options, bool* isSound) {
    ExpectedSets sets;
    Recording recording;
    const std::string scratch = options->work + "/app0";
    if (Fault fault = readExpectedSet(options->images, "2.0", 1, &sets.old)) return fault;
    if (Fault fault = readExpectedSet(options->images, "3.0", 0, &sets.next)) return fault;
    if (Fault fault = readWholeFile(options->key, &options->boot.keyFile)) return fault;
    if (Fault fault = readRecording(*options, sets, &recording)) return fault;
    std::error_code error;
    std::filesystem::create_directories(scratch, error);
    if (error) return fileFault(scratch, error.value());
    App0Reader app0(scratch, options->boot.keyFile);
    Selection selection;
    *isSound = judgeAll(recording, sets, &app0, &selection);

    const size_t most =
        options->boots == "all" ? SIZE_MAX : std::strtoul(options->boots.c_str(), nullptr, 10);
    if (most == 0) return {};
    const std::vector<Candidate> chosen = selection.choose(most, kSpread);
    printf("\nBooting %zu of these states, and updating each again\n", chosen.size());
    fflush(stdout);
    options->boot.folder = options->work;
    *isSound = BootQueue(options->boot, sets, recording.log, chosen).bootAll(recording.disk) && *isSound;
    return {};
}

int runCommandLine(int argc, char** argv) {
    CLI::App app("Judges every power cut in a recorded update, and boots some.", "rovu-vm-power-cut");
    Options options;
    const struct {
        const char* name;
        std::string* value;
        const char* description;
    } rows[] = {
        {"--images", &options.images, "Folder of the images of the versions 2.0 and 3.0"},
        {"--disk", &options.disk, "Disk before the update, which runs 2.0 in set 1"},
        {"--log", &options.log, "Log of the disk's writes while it was updated to 3.0 in set 0"},
        {"--key", &options.key, "File with what /app0/secrets/rovu/preshared holds"},
        {"--work", &options.work, "Folder for files of its own"},
        {"--boots", &options.boots,
         "How many states to boot; all: those after the volumes began to be switched, and 100 before"},
        {"--boot", &options.boot.boot, "The program device/vm/boot"},
        {"--files", &options.boot.files, "Image of what the booted devices serve to themselves"},
        {"--command", &options.boot.command, "Script that the booted devices run"},
        {"--owner", &options.boot.owner, "What the owner's file on them holds"},
    };
    for (const auto& row : rows)
        app.add_option(row.name, *row.value, row.description)->required();
    app.get_option("--boots")->check(CLI::Range(0U, 1U << 20) | CLI::IsMember({"all"}));
    CLI11_PARSE(app, argc, argv);
    bool isSound = false;
    if (Fault fault = run(&options, &isSound)) {
        fprintf(stderr, "rovu-vm-power-cut: %s\n", fault.message().c_str());
        return 1;
    }
    return isSound ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return runCommandLine(argc, argv);
    } catch (const std::exception& fault) {
        fprintf(stderr, "rovu-vm-power-cut: %s\n", fault.what());
        return 1;
    }
}
