#include "builder/staging.h"

#include "host/files.h"
#include "host/leftovers.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
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

}  // namespace

UpdateStaging::~UpdateStaging() {
    if (!folder_.empty()) {
        for (const std::string& name : names_)
            unlink((folder_ + "/" + name).c_str());
        rmdir(folder_.c_str());
    }
    if (madeTarget_) rmdir(targetFolder_.c_str());  // fails if it is not empty, as intended
}

Fault UpdateStaging::prepare(const std::string& target) {
    targetFolder_ = target;
    madeTarget_ = mkdir(target.c_str(), kFolderMode) == 0;
    if (!madeTarget_ && errno == ENOENT) {
        const std::string parent = std::filesystem::path(target).parent_path();
        return {ENOENT, target + ": there is no folder " + parent + " to make it in; mkdir -p " + parent};
    }
    if (!madeTarget_ && errno != EEXIST) return fileFault(target, errno);
    removeLeftovers(target, kFolderPrefix);
    const int rc = makeLockedFolder(target, kFolderPrefix, &lock_, &folder_);
    return rc == 0 ? Fault() : fileFault(target, rc);
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
