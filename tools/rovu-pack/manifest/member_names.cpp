// The device puts a name between single quotes, and extracts it into its work directory beside its own files.

#include "member_names.h"

#include <array>

namespace {

constexpr std::array<const char*, 6> kOwnNames = {"rovu.lua", "scriptTar",    "img0",
                                                  "img1",     "progress.tmp", "_img.tmp"};

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
    for (const char* own : kOwnNames) {
        if (name == own) return "is the name of a file of the device's own work directory";
    }
    return "";
}
