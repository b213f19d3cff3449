// The hidden folder lies in the target, so that a rename never crosses file systems.

#include "staging.h"

#include "files.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t kFolderMode = 0777;  // the mask narrows it
constexpr char kFolderTemplate[] = "/.rovu-pack.XXXXXX";
constexpr char kScratchName[] = "/.scratch";  // not a name that pathOf() is asked for

int syncFile(const std::string& path, std::string* error) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return fileError(path, errno, error);
    const int rc = fsync(fd) == 0 ? 0 : errno;
    close(fd);
    return rc == 0 ? 0 : fileError(path, rc, error);
}

}  // namespace

UpdateStaging::~UpdateStaging() {
    if (!folder.empty()) {
        for (const std::string& name : names)
            unlink((folder + "/" + name).c_str());
        unlink(scratchPath().c_str());
        rmdir(folder.c_str());
    }
    if (madeTarget) rmdir(targetFolder.c_str());  // fails once it holds anything, as it should
}

int UpdateStaging::open(const std::string& target, std::string* error) {
    targetFolder = target;
    madeTarget = mkdir(target.c_str(), kFolderMode) == 0;
    if (!madeTarget && errno != EEXIST) return fileError(target, errno, error);
    std::string path = target + kFolderTemplate;
    if (mkdtemp(path.data()) == nullptr) return fileError(target, errno, error);
    folder = path;
    return 0;
}

std::string UpdateStaging::pathOf(const std::string& name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    return folder + "/" + name;
}

bool UpdateStaging::replaces(const std::string& name, const std::string& path) const {
    struct stat target;
    struct stat other;
    return lstat((targetFolder + "/" + name).c_str(), &target) == 0 && stat(path.c_str(), &other) == 0 &&
           target.st_dev == other.st_dev && target.st_ino == other.st_ino;
}

std::string UpdateStaging::scratchPath() {
    return folder + kScratchName;
}

int UpdateStaging::publish(std::string* error) {
    for (const std::string& name : names) {
        if (int rc = syncFile(folder + "/" + name, error); rc != 0) return rc;
    }
    for (const std::string& name : names) {
        const std::string target = targetFolder + "/" + name;
        if (rename((folder + "/" + name).c_str(), target.c_str()) != 0)
            return fileError(target, errno, error);
    }
    return 0;
}
