#include "rovu_sim/boot_env.h"

#include "rovu_sim/text_files.h"

#include <cerrno>

namespace rovusim {
namespace {

std::string pathOf(const std::string& stateDir) {
    return stateDir + "/uboot.env";
}

}  // namespace

int readBootEnv(const std::string& stateDir, BootEnv* env) {
    std::string text;
    if (int rc = readTextFile(pathOf(stateDir), &text); rc != 0) return rc;
    BootEnv all;
    for (const std::string& line : splitLines(text)) {
        const size_t equals = line.find('=');
        if (equals == std::string::npos || equals == 0) continue;
        all.emplace_back(line.substr(0, equals), line.substr(equals + 1));
    }
    env->swap(all);
    return 0;
}

int getBootVariable(const std::string& stateDir, const std::string& name, std::string* value) {
    BootEnv env;
    if (int rc = readBootEnv(stateDir, &env); rc != 0) return rc;
    for (const auto& variable : env) {
        if (variable.first != name) continue;
        *value = variable.second;
        return 0;
    }
    return ENOENT;
}

int setBootVariable(const std::string& stateDir, const std::string& name, const std::string& value) {
    if (name.empty() || name.find('=') != std::string::npos) return EINVAL;
    BootEnv env;
    if (int rc = readBootEnv(stateDir, &env); rc != 0 && rc != ENOENT) return rc;
    std::string text;
    bool placed = value.empty();
    for (const auto& variable : env) {
        const bool same = variable.first == name;
        if (same && placed) continue;
        text += variable.first + "=" + (same ? value : variable.second) + "\n";
        placed = placed || same;
    }
    if (!placed) text += name + "=" + value + "\n";
    return replaceTextFile(pathOf(stateDir), text);
}

}  // namespace rovusim
