#include "host/scratch.h"

#include "host/files.h"
#include "host/leftovers.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace {

constexpr char kPrefix[] = "rovu-pack.";

}  // namespace

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

Fault ScratchFolder::make() {
    const char* named = getenv("TMPDIR");
    const bool isGiven = named != nullptr && named[0] != '\0';
    const std::string parent = isGiven ? named : "/tmp";
    char resolved[PATH_MAX];
    int rc = realpath(parent.c_str(), resolved) == nullptr ? errno : 0;
    if (rc == 0) {
        removeLeftovers(resolved, kPrefix);
        rc = makeLockedFolder(resolved, kPrefix, &lock_, &path_);
    }
    if (rc != 0) {
        Fault fault = fileFault("no folder can be made in " + parent, rc);
        return isGiven ? fault.of("TMPDIR") : fault;
    }
    return {};
}

Fault TemporaryFile::open() {
    const char* folder = getenv("TMPDIR");
    const bool isGiven = folder != nullptr && *folder != '\0';
    std::string name = std::string(isGiven ? folder : "/tmp") + "/rovu-pack-XXXXXX";
    file_.reset(mkostemp(name.data(), O_CLOEXEC));
    if (!file_.isOpen()) {
        const std::string place = isGiven ? "TMPDIR, which is " + std::string(folder) : "/tmp";
        return {errno,
                "no temporary file in " + place + ": " + strerror(errno) + "; set TMPDIR to another folder"};
    }
    unlink(name.c_str());
    return {};
}
