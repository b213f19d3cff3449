#include "staging.h"

#include "files.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t kFolderMode = 0777;  // the mask narrows it
constexpr char kFolderPrefix[] = ".rovu-pack.";

Fault syncFile(const std::string& path) {
    const zem::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0 || fsync(file.get()) != 0) return fileFault(path, errno);
    return {};
}

// Removes what builds left that were killed. A running one holds a lock on its folder.
void removeLeftovers(const std::string& target) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(target, ignored)) {
        const std::string& path = entry.path();
        if (entry.path().filename().string().rfind(kFolderPrefix, 0) != 0) continue;
        const zem::Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (folder.isOpen() && flock(folder.get(), LOCK_EX | LOCK_NB) == 0)
            std::filesystem::remove_all(path, ignored);
    }
}

}  // namespace

UpdateStaging::~UpdateStaging() {
    if (!folder_.empty()) {
        for (const std::string& name : names_)
            unlink((folder_ + "/" + name).c_str());
        rmdir(folder_.c_str());
    }
    if (madeTarget_) rmdir(targetFolder_.c_str());  // fails once it holds anything, as it should
}

Fault UpdateStaging::prepare(const std::string& target) {
    targetFolder_ = target;
    madeTarget_ = mkdir(target.c_str(), kFolderMode) == 0;
    if (!madeTarget_ && errno != EEXIST) return fileFault(target, errno);
    // Until the new folder is locked, no other build may take it for a leftover.
    const zem::Descriptor whole(open(target.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!whole.isOpen() || flock(whole.get(), LOCK_EX) != 0) return fileFault(target, errno);
    removeLeftovers(target);
    std::string path = target + "/" + kFolderPrefix + "XXXXXX";
    if (mkdtemp(path.data()) == nullptr) return fileFault(target, errno);
    folder_ = path;
    lock_.reset(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!lock_.isOpen() || flock(lock_.get(), LOCK_EX) != 0) return fileFault(path, errno);
    return {};
}

std::string UpdateStaging::pathOf(const std::string& name) {
    if (std::find(names_.begin(), names_.end(), name) == names_.end()) names_.push_back(name);
    return folder_ + "/" + name;
}

bool UpdateStaging::replaces(const std::string& name, const std::string& path) const {
    struct stat target;
    struct stat other;
    return lstat((targetFolder_ + "/" + name).c_str(), &target) == 0 && stat(path.c_str(), &other) == 0 &&
           target.st_dev == other.st_dev && target.st_ino == other.st_ino;
}

Fault UpdateStaging::publish() {
    for (const std::string& name : names_) {
        if (Fault fault = syncFile(folder_ + "/" + name)) return fault;
    }
    for (const std::string& name : names_) {
        const std::string target = targetFolder_ + "/" + name;
        if (rename((folder_ + "/" + name).c_str(), target.c_str()) != 0) return fileFault(target, errno);
    }
    return {};
}
