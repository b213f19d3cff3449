#include "scratch_folder.h"

#include "files.h"
#include "leftovers.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <system_error>

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
