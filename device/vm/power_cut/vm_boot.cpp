#include "vm_boot.h"

#include "disk.h"
#include "host/child.h"
#include "host/files.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <vector>

namespace {

constexpr char kTimeLimit[] =
    "600";  // seconds for a power-on, many times what it takes on an idle workstation

// What the target VM printed: lines that begin with the name of a fact.
class Facts {
public:
    explicit Facts(const std::string& text) {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            lines_.push_back(line);
        }
    }

    // The rest of the first line that begins so; empty if there is none.
    std::string value(const std::string& name) const {
        for (const std::string& line : lines_) {
            if (line.compare(0, name.size() + 1, name + " ") == 0) return line.substr(name.size() + 1);
        }
        return "";
    }

    bool has(const std::string& line) const {
        return std::find(lines_.begin(), lines_.end(), line) != lines_.end();
    }

private:
    std::vector<std::string> lines_;
};

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string faultOfVolumes(const Facts& facts, const ExpectedSet& set) {
    const struct {
        std::string name;
        const ExpectedImage& image;
    } volumes[] = {{set.kernelVolume(), set.kernel}, {set.rootfsVolume(), set.rootfs}};
    for (const auto& [name, image] : volumes) {
        if (!endsWith(facts.value("volume " + name), " " + image.md5))
            return "the device reads " + name + " otherwise";
    }
    return "";
}

int readableReferences(const Facts& facts) {
    return (facts.has("reference1 readable") ? 1 : 0) + (facts.has("reference2 readable") ? 1 : 0);
}

// The device's own judgement must be that of the disk's contents.
std::string faultOfDevice(const Facts& facts, const ExpectedSet& set, const Verdict& expected,
                          const BootOptions& options) {
    if (!facts.has("looked")) return "it does not boot again";
    if (facts.value("set") != std::to_string(set.number)) return "another set runs";
    if (facts.value("rootfs") != set.version) return "another version runs";
    if (facts.value("owner") != options.owner) return "the owner's file is gone";
    if (readableReferences(facts) != expected.references) return "the device finds other reference files";
    return faultOfVolumes(facts, set);
}

// The next update must have come to its restart, and have switched to the other set.
std::string faultOfUpdate(const std::string& folder, const ExpectedSets& sets, Boots expected,
                          const BootOptions& options) {
    std::string console, disk;
    if (Fault fault = readWholeFile(folder + "/console.log", &console)) return fault.message();
    if (Fault fault = readWholeFile(folder + "/disk.img", &disk)) return fault.message();
    if (console.find("reboot: Restarting system") == std::string::npos)
        return "the next update does not restart the device";
    const std::string scratch = folder + "/app0";
    std::error_code error;
    if (!std::filesystem::create_directory(scratch, error))
        return fileFault(scratch, error.value()).message();
    App0Reader app0(scratch, options.keyFile);
    const Verdict verdict = Judge(sets, &app0, disk).judge(disk);
    if (!verdict.fault.empty()) return "after the next update: " + verdict.fault;
    if (verdict.boots != expected) return "the next update does not switch the sets";
    return verdict.references == 2 ? "" : "after the next update a reference file is missing";
}

}  // namespace

std::string bootAndUpdate(const BootOptions& options, const ExpectedSets& sets, const Verdict& expected,
                          const std::string& disk, const std::string& name) {
    if (expected.boots == Boots::kNeither) return "no set boots";
    const std::string folder = options.folder + "/" + name, output = folder + "/output";
    std::error_code error;
    std::filesystem::remove_all(folder, error);
    if (!std::filesystem::create_directory(folder, error)) return fileFault(folder, error.value()).message();
    int rc = writeSparse(folder + "/disk.img", disk);
    if (rc == 0) rc = writeSparse(output, "");
    if (rc != 0) return fileFault(folder, rc).message();
    const std::vector<std::string> words = {"timeout",
                                            "--foreground",
                                            "-s",
                                            "KILL",
                                            kTimeLimit,
                                            options.boot,
                                            folder,
                                            "--command",
                                            options.command,
                                            "--files",
                                            options.files,
                                            "--console",
                                            folder + "/console.log",
                                            "--output",
                                            output};
    int status = 0;
    if (Fault fault = runChild(words, "/dev/null", folder + "/boot.log", &status)) return fault.message();
    if (status != 0) return "the target VM ends with " + std::to_string(status);

    std::string said;
    if (Fault fault = readWholeFile(output, &said)) return fault.message();
    const bool isOld = expected.boots == Boots::kOld;
    const Facts facts(said);
    std::string fault = faultOfDevice(facts, isOld ? sets.old : sets.next, expected, options);
    if (fault.empty()) fault = faultOfUpdate(folder, sets, isOld ? Boots::kNew : Boots::kOld, options);
    if (fault.empty()) std::filesystem::remove_all(folder, error);
    return fault;
}
