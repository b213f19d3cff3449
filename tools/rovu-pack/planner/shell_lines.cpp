// One function for each format of the device's program that a spec's text gets into.

#include "shell_lines.h"

#include "settings.h"
#include "ubi_tools/ubi_volume.h"
#include "util/path.h"

namespace {

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

}  // namespace

std::string workPath(const std::string& name) {
    std::string path = kWorkDir;
    return appendPath(path, name);
}

std::string extractLine(const std::string& tar, const std::string& member) {
    return "tar -xf " + quoted(workPath(tar)) + " -C " + quoted(kWorkDir) + " " + quoted(member);
}

std::string scriptLine(const std::string& name) {
    return "/bin/sh " + quoted(workPath(name));
}

std::string digestLine(const std::string& name) {
    return "sha256sum " + quoted(workPath(name));
}

std::string flashLine(const std::string& id, const std::string& name) {
    return "ubiupdatevol " + quoted(std::string(kUbiDevice) + "_" + id) + " " + quoted(workPath(name));
}
