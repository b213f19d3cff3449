// The device puts a name between single quotes, and extracts it into its work directory beside its own files.

#include "member_names.h"

#include "spec_words.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr const char* kImageTars[] = {"img0", "img1"};

bool isDeviceFile(const std::string& name) {
    const auto isName = [&name](const char* own) { return name == own; };
    return std::any_of(std::begin(kDeviceFiles), std::end(kDeviceFiles), isName) ||
           std::any_of(std::begin(kImageTars), std::end(kImageTars), isName);
}

bool hasBadStep(const std::string& name) {
    const std::string path = "/" + name + "/";
    for (const char* step : {"//", "/./", "/../"}) {
        if (path.find(step) != std::string::npos) return true;
    }
    return false;
}

}  // namespace

std::string memberNameFault(const std::string& name) {
    if (name.empty()) return "is empty";
    if (name[0] == '-') return "begins with a hyphen, which tar takes for an option";
    if (hasBadStep(name)) return "is not a plain path below the manifest's folder";
    for (const char c : name) {
        if (c == '\'') return "holds a single quote, which ends the quoting of a command";
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return "holds a control character";
    }
    return isDeviceFile(name) ? "is the name of a file of the device's own work directory" : "";
}
