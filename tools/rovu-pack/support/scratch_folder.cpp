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
    const std::string parent = named != nullptr && named[0] != '\0' ? named : "/tmp";
    char resolved[PATH_MAX];
    if (realpath(parent.c_str(), resolved) == nullptr) return fileFault(parent, errno);
    std::string path = std::string(resolved) + "/rovu-pack.XXXXXX";
    if (mkdtemp(path.data()) == nullptr) return fileFault(path, errno);
    path_ = path;
    return {};
}
