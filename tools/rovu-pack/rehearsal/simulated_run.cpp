#include "rehearsal/simulated_run.h"

#include "host/child.h"
#include "host/digests.h"
#include "host/files.h"
#include "rehearsal/new_root.h"
#include "rovu_sim/boot_env.h"
#include "rovu_sim/call_log.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/volume_store.h"
#include "run/settings.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <map>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

// Where the device finds the spec, which need not lie among the files that are served.
constexpr char kSpecUrl[] = "http://rehearsal.invalid/spec";
constexpr char kSecretsPath[] = "/app0/secrets/rovu/preshared";
constexpr int kMisused = 2;  // exit status of rovu-sim
constexpr mode_t kFolderMode = 0755;

Fault simulatorFault(const std::string& what, int rc) {
    return rc == 0 ? Fault()
                   : Fault(rc, "the simulated device: " + what + ": " + std::generic_category().message(rc));
}

constexpr uint32_t kMostLebs = 1 << 19;
// Of a whole device; a real one has less.
constexpr const char* kLimits[] = {"memory=4G", "disk=1G", "processes=500"};

// A web server looks for what "%20" stands for.
std::string unescaped(const std::string& url) {
    std::string text;
    for (size_t at = 0; at < url.size(); ++at) {
        const bool isEscape =
            url[at] == '%' && at + 2 < url.size() && isxdigit(url[at + 1]) != 0 && isxdigit(url[at + 2]) != 0;
        text += isEscape ? static_cast<char>(std::stoi(url.substr(at + 1, 2), nullptr, 16)) : url[at];
        if (isEscape) at += 2;
    }
    return text;
}

constexpr unsigned kReadSeconds = 600;  // that a look into the new root file system may take
constexpr uint64_t kDataLebs = 3;       // of the data volumes of a device whose kind does not say

// What an update needs on the simulator, and the room that leaves as much there as is left on a device of the kind.
// Only the erase blocks have another size.
class SimulatedRoom {
public:
    explicit SimulatedRoom(const FleetRow& planned) : given_(planned.device.room), need_(planned.room) {
        data_ = given_.data ? (*given_.data + rovusim::kLebBytes - 1) / rovusim::kLebBytes : kDataLebs;
        here_ = need_;
        if (here_.clonesOverlay) here_.overlay = dataBytes();
        for (VolumeNeed& volume : here_.volumes) {
            if (volume.kind == "data") volume.bytes = dataBytes();
        }
    }

    bool needsLebs() const { return !need_.volumes.empty(); }
    uint64_t dataBytes() const { return data_ * rovusim::kLebBytes; }

    // Bytes of /tmp; 0: no limit.
    uint64_t tmp() const {
        return given_.tmp ? std::max<uint64_t>(1, *given_.tmp + here_.peak() - need_.peak()) : 0;
    }

    // LEBs for the new kernel and rootfs and what they replace; empty: no limit.
    std::optional<uint64_t> freeLebs() const {
        if (!given_.freeLebs) return std::nullopt;
        const uint64_t free = *given_.freeLebs + here_.lebs(rovusim::kLebBytes);
        return free - std::min(free, need_.lebs(*given_.lebSize));
    }

private:
    const DeviceRoom& given_;
    const RoomNeed& need_;
    RoomNeed here_;
    uint64_t data_;
};

class Device {
public:
    Device(const FleetRow& planned, uint32_t active, const std::string& inFolder)
        : kind_(planned.device), room_(planned), activeSet_(active), folder_(inFolder) {}

    Fault make(const RehearsalFiles& files) const {
        rovusim::DeviceOptions options;
        options.model = kind_.model;
        options.kernelRelease = kind_.kernel;
        options.rootfsVersion = kind_.rootfs;
        options.totalLebs = kMostLebs;
        options.tmpBytes = room_.tmp();
        if (Fault fault = findRoot(files, &options.root)) return fault;
        if (Fault fault = simulatorFault("making it", rovusim::createDevice(state(), options))) return fault;
        if (Fault fault = copy(files.key, kPublicKeyPath)) return fault;
        if (Fault fault = copy(files.secrets, kSecretsPath)) return fault;
        if (Fault fault = startFromSet()) return fault;
        return simulatorFault("making its volumes", makeVolumes());
    }

    Fault run(const RehearsalFiles& files, const Tars& tars, SimulatedRun* run) {
        if (Fault fault = look(&run->before)) return fault;
        if (Fault fault = runProgram(files, tars, run)) return fault;
        rovusim::Progress progress;
        if (rovusim::readProgressFile(rovusim::progressPath(state()), &progress) == 0)
            run->state = progress.state;
        std::vector<rovusim::Call> calls;
        if (Fault fault = simulatorFault("reading its calls", rovusim::readCallsOfLastRun(state(), &calls)))
            return fault;
        for (const rovusim::Call& call : calls) {
            if (call.number == 0) {
                if (!run->commands.empty() && !call.args.empty())
                    run->commands.back().waited += strtod(call.args.front().c_str(), nullptr);
                continue;
            }
            run->commands.push_back({call.state, {call.tool}});
            std::vector<std::string>& words = run->commands.back().words;
            words.insert(words.end(), call.args.begin(), call.args.end());
        }
        for (const auto& [file, path] :
             {std::pair(files.key, kPublicKeyPath), std::pair(files.secrets, kSecretsPath)}) {
            if (!file.empty() && access(rovusim::outsidePath(state(), path).c_str(), R_OK) != 0)
                run->lost.emplace_back(path);
        }
        run->restarts = rovusim::rebootRequested(state());
        if (Fault fault = look(&run->after)) return fault;
        if (rovusim::setToBoot(state(), &run->nextSet) != 0) run->bootFault = "bootswitcher names no set";
        if (!run->restarts || !run->bootFault.empty()) return {};
        if (rovusim::restartDevice(state(), &run->bootFault) != 0) return {};
        return tryNewSet(files, run);
    }

private:
    std::string state() const { return folder_ + "/device"; }

    Fault findRoot(const RehearsalFiles& files, std::string* root) const {
        char resolved[PATH_MAX];
        if (kind_.root.empty() && files.hostTools) *root = rovusim::kHostRoot;
        if (kind_.root.empty()) return {};
        if (realpath(kind_.root.c_str(), resolved) == nullptr) return fileFault(kind_.root, errno);
        *root = resolved;
        return {};
    }

    static std::vector<std::string> simulator(unsigned seconds) {
        std::vector<std::string> words = {programBesideThis("rovu-sim"), "run", "--no-wait"};
        for (const char* limit : kLimits)
            words.insert(words.end(), {"--limit", limit});
        words.insert(words.end(), {"--limit", "time=" + std::to_string(seconds)});
        return words;
    }

    // On the root file system that the update has brought, if it is one that can be unpacked.
    Fault tryNewSet(const RehearsalFiles& files, SimulatedRun* run) const {
        rovusim::Volume volume;
        const std::string root = "k" + std::to_string(run->nextSet) + "_root";
        if (rovusim::findVolume(state(), root, &volume) == 0) {
            if (Fault fault = lookInto({rovusim::volumePath(state(), volume.id), kind_.root, files.key,
                                        folder_, simulator(kReadSeconds)},
                                       &run->root))
                return fault;
        }
        if (!run->root.isRead) return {};
        std::vector<std::string> words = simulator(files.scriptSeconds);
        words.insert(words.end(),
                     {state(), "--", "/bin/sh", "-c", files.health.empty() ? ":" : files.health});
        const std::string log = folder_ + "/health";
        if (Fault fault = runChild(words, "/dev/null", log, &run->healthStatus)) return fault;
        return readWholeFile(log, &run->healthLog);
    }

    Fault copy(const std::string& file, const char* pathOnDevice) const {
        std::string bytes;
        if (file.empty()) return {};
        if (Fault fault = readWholeFile(file, &bytes)) return fault;
        return simulatorFault("writing a file", rovusim::putDeviceFile(state(), pathOnDevice, bytes));
    }

    Fault startFromSet() const {
        if (activeSet_ == 0) return {};
        int rc = rovusim::setBootVariable(state(), "bootswitcher", "0A0A01");
        if (rc == 0) rc = rovusim::restartDevice(state(), nullptr);
        return simulatorFault("starting set 1", rc);
    }

    // The old volumes of the inactive set hold the active one's images where the versions are the same. If the kind says
    // how much room there is, they are as small as can be: which part of it they have, it does not say.
    int makeVolumes() const {
        const std::optional<uint64_t> free = room_.freeLebs();
        const std::string active = "k" + std::to_string(activeSet_);
        const std::string inactive = "k" + std::to_string(activeSet_ ^ 1);
        const InactiveSet& holds = kind_.inactive;
        const uint64_t old = (holds.kernel == kMissing ? 0U : 1U) + (holds.rootfs == kMissing ? 0U : 1U);
        const bool areOld = !free || *free >= old || !room_.needsLebs();
        const uint64_t bytes = free ? 1 : 0;
        int rc = fill(active, bytes, "", kind_.kernel);
        if (rc == 0) rc = fill(active + "_root", bytes, "", kind_.rootfs);
        if (rc == 0 && kind_.room.data) rc = remake(active + "_data", room_.dataBytes(), "data");
        if (rc == 0) rc = fill(inactive + "_data", room_.dataBytes(), holds.data, "");
        if (rc == 0) rc = fill(inactive, bytes, areOld ? holds.kernel : kMissing, kind_.kernel);
        if (rc == 0) rc = fill(inactive + "_root", bytes, areOld ? holds.rootfs : kMissing, kind_.rootfs);
        return rc == 0 && free ? limitLebs(*free, inactive) : rc;
    }

    // `version` of what is there: as in an InactiveSet, `unknown` if it says nothing. `bytes`: a new size; 0: that which
    // the volume has.
    int fill(const std::string& name, uint64_t bytes, const std::string& version,
             const std::string& unknown) const {
        const std::string& held = version.empty() ? unknown : version;
        const std::string text = held == kBlank || held.empty() ? "" : "version=" + held + "\n";
        if (version == kMissing) return removeVolumeOf(name, nullptr);
        if (bytes != 0) return remake(name, bytes, text);
        return held == unknown ? 0 : rovusim::writeVolume(state(), name, text);
    }

    int removeVolumeOf(const std::string& name, rovusim::Volume* volume) const {
        rovusim::Volume unused;
        rovusim::Volume* found = volume == nullptr ? &unused : volume;
        const int rc = rovusim::findVolume(state(), name, found);
        return rc == 0 ? rovusim::removeVolume(state(), found->id) : rc;
    }

    int remake(const std::string& name, uint64_t bytes, const std::string& text) const {
        rovusim::Volume volume;
        int rc = removeVolumeOf(name, &volume);
        if (rc == 0) rc = rovusim::createVolume(state(), name, volume.dynamic, bytes, volume.id, nullptr);
        return rc == 0 ? rovusim::writeVolume(state(), name, text) : rc;
    }

    // `free` LEBs beside those of the volumes that the update does not replace.
    int limitLebs(uint64_t free, const std::string& inactive) const {
        std::vector<rovusim::Volume> volumes;
        rovusim::Device device;
        int rc = rovusim::listVolumes(state(), &volumes);
        if (rc == 0) rc = rovusim::loadDevice(state(), &device);
        if (rc != 0) return rc;
        for (const rovusim::Volume& volume : volumes)
            free += volume.name == inactive || volume.name == inactive + "_root" ? 0 : volume.lebs;
        device.totalLebs = static_cast<uint32_t>(std::min<uint64_t>(free, kMostLebs));
        return rovusim::saveDevice(state(), device);
    }

    Fault look(std::vector<SimulatedVolume>* volumes) const {
        std::vector<rovusim::Volume> found;
        if (Fault fault = simulatorFault("reading its volumes", rovusim::listVolumes(state(), &found)))
            return fault;
        for (const rovusim::Volume& volume : found) {
            std::string bytes;
            if (int rc = rovusim::readVolume(state(), volume.name, &bytes); rc != 0)
                return simulatorFault("reading a volume", rc);
            volumes->push_back(
                {volume.name, volume.id, uint64_t{volume.lebs} * rovusim::kLebBytes, hexMd5(bytes)});
        }
        return {};
    }

    // The folder that answers `place`, a URL that ends in a slash; made when it is first asked for.
    Fault folderFor(const std::string& place, std::string* path) {
        const auto found = places_.find(place);
        *path = found != places_.end() ? found->second : folder_ + "/served" + std::to_string(places_.size());
        if (found != places_.end()) return {};
        places_[place] = *path;
        return mkdir(path->c_str(), kFolderMode) == 0 ? Fault() : fileFault(*path, errno);
    }

    // Links, since two tars of one URL's folder may stand in different folders here.
    Fault serve(const std::string& url, const std::string& file) {
        char resolved[PATH_MAX];
        const std::string path = unescaped(url.substr(0, url.find_first_of("?#")));
        const size_t name = path.rfind('/') + 1;
        std::string folder;
        if (Fault fault = folderFor(path.substr(0, name), &folder)) return fault;
        if (realpath(file.c_str(), resolved) == nullptr) return {};  // not there, as on the server
        folder += "/" + path.substr(name);
        if (symlink(resolved, folder.c_str()) == 0 || errno == EEXIST) return {};
        return fileFault(folder, errno);
    }

    Fault runProgram(const RehearsalFiles& files, const Tars& tars, SimulatedRun* run) {
        std::vector<std::string> words = simulator(files.scriptSeconds);
        if (Fault fault = serve(kSpecUrl, files.spec)) return fault;
        for (const TarFacts& tar : tars) {
            if (Fault fault = serve(tar.url, tar.path)) return fault;
        }
        for (const auto& [place, folder] : places_)
            words.insert(words.end(), {"--serve", std::string(place).append("=").append(folder)});
        words.insert(words.end(),
                     {state(), "--", files.program.empty() ? programBesideThis("rovu") : files.program});
        if (files.key.empty()) words.insert(words.end(), {"-k", "NONE"});
        words.emplace_back(kSpecUrl);
        const std::string log = folder_ + "/log";
        if (Fault fault = runChild(words, "/dev/null", log, &run->status)) return fault;
        if (Fault fault = readWholeFile(log, &run->log)) return fault;
        const bool wasKilled = run->status > rovusim::kExitSignalBase;
        if (wasKilled || (run->status < rovusim::kExitSetupFailed && run->status != kMisused)) return {};
        return {EIO, "rovu-sim could not run the update: " + run->log};
    }

    const DeviceKind& kind_;
    const SimulatedRoom room_;
    uint32_t activeSet_;
    std::string folder_;
    std::map<std::string, std::string> places_;  // folders that are served, by their URL
};

}  // namespace

std::string nameOfRoot(const std::string& root, bool hostTools) {
    if (root.empty()) return hostTools ? "this machine's programs" : "this machine's BusyBox";
    return root.substr(root.find_last_not_of('/') == std::string::npos
                           ? 0
                           : root.rfind('/', root.find_last_not_of('/')) + 1);
}

Fault runOnSimulator(const FleetRow& planned, uint32_t activeSet, const RehearsalFiles& files,
                     const Tars& tars, const std::string& folder, SimulatedRun* run) {
    Device device(planned, activeSet, folder);
    if (Fault fault = device.make(files)) return fault;
    return device.run(files, tars, run);
}
