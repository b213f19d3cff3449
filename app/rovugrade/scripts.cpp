// Scripts travel inside tars and stand on the disk only for as long as they run.

#include "scripts.h"

#include "log_module.h"
#include "settings.h"
#include "util/command.h"
#include "util/path.h"

#include <cstdio>

namespace {

int commandResult(int32_t runResult, int exitStatus) {
    return runResult != 0 ? -runResult : exitStatus;
}

}  // namespace

int extractFromTar(const std::string& workDir, const std::string& tar, const std::string& member) {
    std::string tarPath = workDir;
    appendPath(tarPath, tar);
    int exitStatus = 0;
    const int32_t ran = runCommandF(nullptr, 0, &exitStatus, nullptr, "tar -xf '%s' -C '%s' '%s'",
                                    tarPath.c_str(), workDir.c_str(), member.c_str());
    const int result = commandResult(ran, exitStatus);
    if (result != 0) LOG_MSG(LOG_LVL_ERROR, "Failed to extract \"%s\"", member.c_str());
    return result;
}

int runScript(const std::string& workDir, const std::string& tar, const std::string& name) {
    if (dryRun) return 0;
    if (int rc = extractFromTar(workDir, tar, name); rc != 0) return rc;
    std::string path = workDir;
    appendPath(path, name);
    int exitStatus = 0;
    const int32_t ran = runCommandF(nullptr, 0, &exitStatus, nullptr, "/bin/sh '%s'", path.c_str());
    remove(path.c_str());
    const int result = commandResult(ran, exitStatus);
    if (result != 0) LOG_MSG(LOG_LVL_ERROR, "Failed to run script \"%s\"", path.c_str());
    return result;
}
