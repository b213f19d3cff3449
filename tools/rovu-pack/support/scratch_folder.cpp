#include "scratch_folder.h"

#include "files.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <system_error>

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

Fault ScratchFolder::make() {
    const char* named = getenv("TMPDIR");
    const bool isGiven = named != nullptr && named[0] != '\0';
    const std::string parent = isGiven ? named : "/tmp";
    char resolved[PATH_MAX];
    std::string path;
    if (realpath(parent.c_str(), resolved) != nullptr) path = std::string(resolved) + "/rovu-pack.XXXXXX";
    if (path.empty() || mkdtemp(path.data()) == nullptr) {
        Fault fault = fileFault("no folder can be made in " + parent, errno);
        return isGiven ? fault.of("TMPDIR") : fault;
    }
    path_ = path;
    return {};
}
