#include "update_faults.h"

#include "rovu_sim/volume_store.h"
#include "support/crypto.h"
#include "support/update.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace {

constexpr const char* kTimeLimit = "120";  // seconds
constexpr auto kCopy =
    std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks;

// Copies a device, but for its root file system: no run can write there, and it has hundreds of links.
void copyState(const std::string& from, const std::string& to) {
    for (const auto& entry : std::filesystem::directory_iterator(from)) {
        if (entry.path().filename() != "root")
            std::filesystem::copy(entry.path(), to / entry.path().filename(), kCopy);
    }
}

rovusim::DeviceOptions optionsWith(const std::string& root) {
    rovusim::DeviceOptions options;
    options.root = root;
    return options;
}

}  // namespace

Sample::Sample(const char* variable, unsigned shares) : shares_(shares) {
    const char* choice = std::getenv(variable);
    if (choice != nullptr && sscanf(choice, "%u/%u", &share_, &shares_) != 2) start_ = choice;
}

bool Sample::has(const std::string& name) const {
    if (!start_.empty()) return name.compare(0, start_.size(), start_) == 0;
    unsigned hash = 2166136261U;  // FNV-1a
    for (const char c : name)
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
    return hash % shares_ == share_ - 1;
}

UpdateFaults::UpdateFaults(const std::string& root) : world_(World::allSteps(), optionsWith(root)) {
    args_ = world_.args({});
    // Its root file system is made by the first run.
    EXPECT_EQ(Program({ROVU_SIM_PROGRAM, "run", device_.directory, "--", "true"}).wait(), 0);
    std::filesystem::create_directory(pristine());
    copyState(device_.directory, pristine());
    active_ = activeSet();
    oldFirst_ = device_.get("/app0/.ubiRefChk1");
    oldSecond_ = device_.get("/app0/.ubiRefChk2");
    const std::string newSet = md5Hex(world_.kernel) + " k1\n" + md5Hex(world_.rootfs) + " k1_root\n";
    merged_ = {referenceFile("0123456789abcdef0123456789abcdef k0\n" + newSet),
               referenceFile("fedcba9876543210fedcba9876543210 k0\n" + newSet)};
}

int UpdateFaults::run(const Strings& simOptions, const Strings& wrapper, const Strings& args) {
    for (const auto& entry : std::filesystem::directory_iterator(device_.directory)) {
        if (entry.path().filename() != "root") std::filesystem::remove_all(entry);
    }
    copyState(pristine(), device_.directory);
    Strings command = {"timeout", "--signal=KILL",   kTimeLimit,  ROVU_SIM_PROGRAM,
                       "run",     device_.directory, "--no-wait", "--network"};
    if (!wrapper.empty()) command.insert(command.end(), {"--bind", ROVU_BUILD_DIRECTORY});
    command.insert(command.end(), simOptions.begin(), simOptions.end());
    command.push_back("--");
    command.insert(command.end(), wrapper.begin(), wrapper.end());
    command.push_back(ROVU_PROGRAM);
    command.insert(command.end(), args.begin(), args.end());
    writeWholeFile(out(), "");
    writeWholeFile(err(), "");
    return Program(command, out(), err()).wait();
}

Strings UpdateFaults::dangers() const {
    Strings found;
    if (activeSet() != active_) found.push_back("active set changed");
    if (!isSwitched() && device_.bootswitcher() != "0A0A00")
        found.push_back("bootswitcher is " + device_.bootswitcher());
    if (isSwitched() && !isNewSetComplete()) found.push_back("switched to an incomplete set");
    return found;
}

Strings UpdateFaults::violations(int status, bool loading) const {
    Strings found = dangers();
    const bool started = hasStarted();
    const std::string end = "status " + std::to_string(status);
    // The dynamic loader has exit statuses of its own, and crashes if it has no memory at all.
    const bool failedToLoad = loading && !started && status > 1;
    if (status != 0 && status != 1 && !failedToLoad) found.push_back(end);
    if (readWholeFile(err()).find("Sanitizer") != std::string::npos) found.push_back("sanitizer report");
    if (device_.has("/tmp/rovu")) found.push_back("work directory left");
    if (started && device_.get("/tmp/rovu.progress") != progressFile(status == 0 ? "complete" : "error"))
        found.push_back(end + " with state \"" + device_.state() + "\"");
    const std::string side = isSwitched() ? " after the switch" : " without the switch";
    if (isSwitched() != (status == 0)) found.push_back(end + side);
    const std::string first = device_.get("/app0/.ubiRefChk1"), second = device_.get("/app0/.ubiRefChk2");
    const bool right =
        isSwitched() ? isMerged(first) && first == second : first == oldFirst_ && second == oldSecond_;
    if (!right) found.push_back("reference files " + nameOf(first) + "," + nameOf(second) + side);
    return found;
}

void UpdateFaults::report(const std::string& name, const Strings& violations) const {
    for (const std::string& violation : violations) {
        ADD_FAILURE() << name << "\n" << readWholeFile(out()) << readWholeFile(err());
        printf("VIOLATION %s: %s\n", name.c_str(), violation.c_str());
        fflush(stdout);  // or each later child process writes it again
    }
}

Strings UpdateFaults::activeSet() const {
    return {device_.volume("k0"), device_.volume("k0_root"), device_.volume("k0_data")};
}

bool UpdateFaults::isNewSetComplete() const {
    for (const char* name : {"k1", "k1_root", "k1_data"}) {
        rovusim::Volume volume;
        if (rovusim::findVolume(device_.directory, name, &volume) != 0 || volume.updating) return false;
    }
    return device_.volume("k1") == world_.kernel && device_.volume("k1_root") == world_.rootfs &&
           device_.volume("k1_data") == device_.volume("k0_data");
}

bool UpdateFaults::isMerged(const std::string& reference) const {
    return std::find(merged_.begin(), merged_.end(), reference) != merged_.end();
}

std::string UpdateFaults::nameOf(const std::string& reference) const {
    if (reference.empty()) return "none";
    if (isMerged(reference)) return "new";
    return reference == oldFirst_ || reference == oldSecond_ ? "old" : "damaged";
}
