#include "rehearsal/new_root.h"

#include "host/child.h"
#include "host/files.h"
#include "host/text.h"
#include "rehearsal/simulated_run.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/sandbox_paths.h"
#include "run/settings.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

namespace {

constexpr char kPlatformScript[] = "/usr/local/bin/readplatform.sh";
constexpr char kShell[] = "/bin/sh";
constexpr char kImage[] = "IMAGE";  // among the options of unsquashfs, where the image stands

// unsquashfs in a simulated device that has this machine's programs.
class Unsquasher {
public:
    explicit Unsquasher(const NewRoot& root) : root_(root) {}

    Fault make() const {
        rovusim::DeviceOptions options;
        options.root = rovusim::kHostRoot;
        const int rc = rovusim::createDevice(device(), options);
        return rc == 0 ? Fault() : fileFault(device(), rc);
    }

    // `said` receives what it printed, `status` its exit status.
    Fault run(const std::string& image, std::vector<std::string> options, int* status,
              std::string* said) const {
        char resolved[PATH_MAX];
        if (realpath(image.c_str(), resolved) == nullptr) return fileFault(image, errno);
        std::replace(options.begin(), options.end(), std::string(kImage), std::string(resolved));
        std::vector<std::string> words = root_.simulator;
        words.insert(words.end(), {"--bind", resolved, device(), "--", "unsquashfs"});
        words.insert(words.end(), options.begin(), options.end());
        const std::string log = root_.folder + "/unsquashfs";
        if (Fault fault = runChild(words, "/dev/null", log, status)) return fault;
        if (Fault fault = readWholeFile(log, said)) return fault;
        const bool isMade = *status < rovusim::kExitSetupFailed || *status > rovusim::kExitNotFound;
        return isMade ? Fault() : Fault(EIO, "unsquashfs cannot be run: " + *said);
    }

private:
    std::string device() const { return root_.folder + "/reader"; }

    const NewRoot& root_;
};

// The files and links of a root file system.
class Contents {
public:
    // A line of the list: "-rwxr-xr-x 0/0   123 2026-01-31 12:00 /usr/bin/a", of a link with " -> b" after it.
    void add(const std::string& line) {
        const size_t at = line.find(" /"), arrow = line.find(" -> ");
        if (line.empty() || line[0] == 'd' || at == std::string::npos) return;
        const std::string path = line.substr(at + 1, arrow == std::string::npos ? arrow : arrow - at - 1);
        if (line[0] == 'l' && arrow != std::string::npos) links_[path] = line.substr(arrow + 4);
        if (line[0] == 'l' || line[0] == '-') files_[path] = line[0] == 'l' || line[3] == 'x';
    }

    // Where a path leads, within this root; a link at its very end stays.
    std::string resolve(const std::string& path) const {
        constexpr unsigned kMostLinks = 40;
        std::string place, rest = path;
        for (unsigned links = 0; !rest.empty();) {
            const size_t end = std::min(rest.find('/', 1), rest.size());
            const std::string name = rest.substr(rest[0] == '/' ? 1 : 0, end - (rest[0] == '/' ? 1 : 0));
            rest.erase(0, end);
            if (name.empty() || name == ".") continue;
            if (name == "..") {
                place.erase(std::min(place.rfind('/'), place.size()));
                continue;
            }
            std::string next = place;
            next.append("/").append(name);
            const auto link = links_.find(next);
            if (link == links_.end() || rest.empty()) {
                place = next;
            } else if (++links <= kMostLinks) {
                if (startsWith(link->second, "/")) place.clear();
                rest.insert(0, link->second);
            }
        }
        return place;
    }

    bool has(const std::string& path) const { return files_.count(resolve(path)) != 0; }

    bool hasProgram(const std::string& path) const {
        const auto found = files_.find(resolve(path));
        return found != files_.end() && found->second;
    }

    bool hasUpdater() const {
        return std::any_of(files_.begin(), files_.end(), [](const std::pair<const std::string, bool>& file) {
            return file.second && endsWith(file.first, "/rovu");
        });
    }

    // The folder that looks like a root; empty: none does. In a merged /usr the shell is one folder further down.
    std::string rootBelow() const {
        for (const auto& [file, runs] : files_) {
            std::string folder =
                runs && endsWith(file, kShell) ? file.substr(0, file.size() - strlen(kShell)) : "";
            if (endsWith(folder, "/usr")) folder.erase(folder.rfind('/'));
            if (!folder.empty()) return folder;
        }
        return "";
    }

private:
    std::map<std::string, std::string> links_;
    std::map<std::string, bool> files_;  // and links, by path: whether it can be run
};

bool isSquashfs(const std::string& path) {
    char magic[4] = {};
    std::ifstream(path, std::ios::binary).read(magic, sizeof magic);
    return std::string(magic, sizeof magic) == "hsqs";
}

std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

// Whether unsquashfs could read it. There are compressions that not every machine knows.
bool isReadable(int status, const std::string& said, NewRootReport* report) {
    if (status == 0) return true;
    report->isRead = said.find("unsupported") == std::string::npos;
    if (report->isRead)
        report->faults.push_back("the new root file system is damaged: " + firstLine(said));
    else
        report->notes.push_back("the new root file system was not looked into: " + firstLine(said));
    return false;
}

// Also copies it to nowhere, which reads every block. An older unsquashfs has no such option.
Fault read(const Unsquasher& unsquasher, const std::string& image, NewRootReport* report,
           Contents* contents) {
    int status = 0;
    std::string said;
    if (Fault fault =
            unsquasher.run(image, {"-quiet", "-no-progress", "-pf", "/dev/null", kImage}, &status, &said))
        return fault;
    if (said.find("nvalid option") == std::string::npos && !isReadable(status, said, report)) return {};
    if (Fault fault = unsquasher.run(image, {"-lln", "-d", "", kImage}, &status, &said)) return fault;
    if (!isReadable(status, said, report)) return {};
    std::istringstream lines(said);
    for (std::string line; std::getline(lines, line);)
        contents->add(line);
    return {};
}

// A key is changed on purpose.
Fault compareKeys(const NewRoot& root, const Unsquasher& unsquasher, const std::string& path,
                  NewRootReport* report) {
    std::string held, key;
    int status = 0;
    if (Fault fault = readWholeFile(root.key, &held)) return fault;
    if (Fault fault = unsquasher.run(root.image, {"-cat", kImage, path}, &status, &key)) return fault;
    const std::string name = kPublicKeyPath;
    if (status != 0)
        report->notes.push_back(name + " of the new root file system was not read: " + firstLine(key));
    else if (key != held)
        report->notes.push_back("the new root file system has another " + name +
                                " than the device: the next update must be signed for that one");
    return {};
}

}  // namespace

Fault lookInto(const NewRoot& root, NewRootReport* report) {
    const Unsquasher unsquasher(root);
    Contents made, old;
    NewRootReport ofOld;
    if (!isSquashfs(root.image)) return {};
    if (Fault fault = unsquasher.make()) return fault;
    if (Fault fault = read(unsquasher, root.image, report, &made)) return fault;
    if (!report->isRead || !report->faults.empty()) return {};
    bool knowsOld = isSquashfs(root.oldRoot);
    if (knowsOld) {
        if (Fault fault = read(unsquasher, root.oldRoot, &ofOld, &old)) return fault;
        knowsOld = ofOld.isRead && ofOld.faults.empty();
    }
    const auto lacks = [report](const std::string& what) {
        report->faults.push_back("the new root file system " + what);
    };
    if (!made.hasProgram(kShell)) {
        const std::string below = made.rootBelow();
        lacks(below.empty() ? std::string("has no ") + kShell : "has all its files below " + below);
        return {};
    }
    if (!made.hasUpdater() && (old.hasUpdater() || !knowsOld))
        lacks("has no program rovu that can be run: no update can follow");
    if (!made.hasProgram(kPlatformScript) && (old.hasProgram(kPlatformScript) || !knowsOld))
        lacks(std::string("has no ") + kPlatformScript + " that can be run: no update can follow");
    if (root.key.empty()) return {};
    if (made.has(kPublicKeyPath))
        return compareKeys(root, unsquasher, made.resolve(kPublicKeyPath).substr(1), report);
    if (old.has(kPublicKeyPath) || !knowsOld)
        lacks(std::string("has no ") + kPublicKeyPath + ": no update can follow");
    return {};
}
