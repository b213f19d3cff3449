#include "rehearsal/new_root.h"

#include "host/child.h"
#include "host/files.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace {

constexpr char kPlatformScript[] = "/usr/local/bin/readplatform.sh";
constexpr char kPublicKey[] = "/etc/ssh/rovu_pub.pem";

struct Contents {
    bool isRead = false;
    std::string damage;
    std::string shellBelow;  // the folder that holds /bin/sh; empty: there is none
    bool hasUpdater = false;
    bool hasPlatformScript = false;
    bool hasKey = false;
    std::string key;
};

// \return the exit status of unsquashfs; -1 if there is none. `said` receives what it printed.
int unsquash(const std::string& folder, std::vector<std::string> words, std::string* said) {
    const std::string log = folder + "/unsquashfs";
    int status = 0;
    words.insert(words.begin(), "unsquashfs");
    return runChild(words, "/dev/null", log, &status) || readWholeFile(log, said) ? -1 : status;
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// A line of the list: "-rwxr-xr-x 0/0   123 2026-01-31 12:00 /usr/bin/a", of a link with " -> b" after it.
void note(const std::string& line, Contents* contents) {
    constexpr char kShell[] = "/bin/sh";
    const std::string path =
        line.substr(0, line.find(" -> ")).substr(std::min(line.find(" /"), line.size() - 1) + 1);
    const bool runs = line[0] == 'l' || (line[0] == '-' && line.size() > 3 && line[3] == 'x');
    if (runs && endsWith(path, "/rovu")) contents->hasUpdater = true;
    if (runs && path == kPlatformScript) contents->hasPlatformScript = true;
    if (path == kPublicKey) contents->hasKey = true;
    if (endsWith(path, kShell) && (contents->shellBelow.empty() || path == kShell))
        contents->shellBelow = path == kShell ? "/" : path.substr(0, path.size() - sizeof kShell + 1);
}

Contents read(const std::string& image, const std::string& folder) {
    Contents contents;
    std::string list;
    contents.isRead = unsquash(folder, {"-lln", "-d", "", image}, &list) == 0;
    std::istringstream lines(list);
    for (std::string line; contents.isRead && std::getline(lines, line);) {
        if (!line.empty()) note(line, &contents);
    }
    if (contents.hasKey) unsquash(folder, {"-cat", image, kPublicKey + 1}, &contents.key);
    return contents;
}

bool isSquashfs(const std::string& path) {
    char magic[4] = {};
    std::ifstream(path, std::ios::binary).read(magic, sizeof magic);
    return std::string(magic, sizeof magic) == "hsqs";
}

}  // namespace

std::vector<std::string> faultsOf(const NewRoot& root) {
    std::string said;
    if (!isSquashfs(root.image)) return {};
    // A copy to nowhere reads every block. An older unsquashfs has no such option.
    const int status =
        unsquash(root.folder, {"-quiet", "-no-progress", "-pf", "/dev/null", root.image}, &said);
    if (status < 0) return {};
    if (status != 0 && said.find("nvalid option") == std::string::npos)
        return {"the new root file system is damaged: " + said.substr(0, said.find('\n'))};
    const Contents made = read(root.image, root.folder);
    if (made.shellBelow.empty()) return {"the new root file system has no /bin/sh"};
    if (made.shellBelow != "/")
        return {"the new root file system has all its files below " + made.shellBelow};
    const Contents old = isSquashfs(root.oldRoot) ? read(root.oldRoot, root.folder) : Contents();
    std::vector<std::string> missing;
    if (!made.hasUpdater && (old.hasUpdater || !old.isRead))
        missing.emplace_back(
            "the new root file system has no program rovu that can be run: no update can follow");
    if (!made.hasPlatformScript && (old.hasPlatformScript || !old.isRead))
        missing.push_back(std::string("the new root file system has no ") + kPlatformScript +
                          " that can be run: no update can follow");
    if (!made.hasKey && old.hasKey)
        missing.push_back(std::string("the new root file system has no ") + kPublicKey +
                          ", which the present one has");
    std::string key;
    if (made.hasKey && !root.key.empty() && !readWholeFile(root.key, &key) && key != made.key)
        missing.push_back(std::string("the new root file system has another ") + kPublicKey +
                          " than the device: an update that the present key signs cannot follow");
    return missing;
}
