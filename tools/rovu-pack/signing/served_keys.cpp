#include "served_keys.h"

#include "files.h"
#include "interruption.h"
#include "key_kinds.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace {

namespace fs = std::filesystem;
constexpr uint64_t kMostOfKey = 65536;  // bytes, with room for certificates beside it

bool holdsPrivateKey(const std::string& path) {
    uint64_t size = 0;
    std::string bytes;
    if (requireRegularFile(path, &size) || size > kMostOfKey || readWholeFile(path, &bytes)) return false;
    return isPrivateKey(bytes);
}

}  // namespace

std::vector<std::string> findPrivateKeys(const std::string& folder) {
    std::vector<std::string> found;
    std::error_code fault;
    fs::recursive_directory_iterator at(folder, fs::directory_options::skip_permission_denied, fault);
    for (; !fault && at != fs::recursive_directory_iterator() && !interruption(); at.increment(fault)) {
        if (holdsPrivateKey(at->path())) found.push_back(at->path());
    }
    std::sort(found.begin(), found.end());
    return found;
}
