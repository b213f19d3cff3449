#include "signing/served_keys.h"

#include "host/files.h"
#include "host/leftovers.h"
#include "signing/key_files.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <system_error>

namespace {

namespace fs = std::filesystem;
constexpr uint64_t kMostOfKey = 65536;  // bytes, with room for certificates beside it

using Judge = std::function<bool(const std::string& bytes)>;

// Empty for what cannot be read, or is too large.
std::string keyBytes(const std::string& path) {
    uint64_t size = 0;
    std::string bytes;
    if (requireRegularFile(path, &size) || size > kMostOfKey || readWholeFile(path, &bytes)) return "";
    return bytes;
}

std::vector<std::string> findFiles(const std::string& folder, const Judge& isFound) {
    std::vector<std::string> found;
    std::error_code fault;
    fs::recursive_directory_iterator at(folder, fs::directory_options::skip_permission_denied, fault);
    for (; !fault && at != fs::recursive_directory_iterator() && !interruption(); at.increment(fault)) {
        if (isFound(keyBytes(at->path()))) found.push_back(at->path());
    }
    std::sort(found.begin(), found.end());
    return found;
}

}  // namespace

std::vector<std::string> findPrivateKeys(const std::string& folder) {
    return findFiles(folder, isPrivateKey);
}

std::vector<std::string> findKeyCopies(const std::string& folder, const std::string& keyFile) {
    constexpr size_t kSecret = 48;  // bytes of a key and its IV
    constexpr size_t kKey = 32;
    const std::string secrets = keyBytes(keyFile);
    if (secrets.size() < kKey) return {};
    return findFiles(folder, [&secrets](const std::string& bytes) {
        for (size_t at = 0; at + kKey <= secrets.size(); at += kSecret) {
            if (bytes.find(secrets.substr(at, kKey)) != std::string::npos) return true;
        }
        return false;
    });
}
