#include "scripts.h"

#include "log_module.h"
#include "settings.h"
#include "util/command.h"
#include "util/path.h"

#include <cstdio>

int extractFromTar(const std::string& workDir, const std::string& tar, const std::string& member) {
    std::string tarPath = workDir;
    appendPath(tarPath, tar);
    const int result = runStep("tar -xf '%s' -C '%s' '%s'", tarPath.c_str(), workDir.c_str(), member.c_str());
    if (result != 0) LOG_MSG(LOG_LVL_ERROR, "Failed to extract \"%s\"", member.c_str());
    return result;
}

int runScript(const std::string& workDir, const std::string& tar, const std::string& name) {
    if (dryRun) return 0;
    if (int rc = extractFromTar(workDir, tar, name); rc != 0) return rc;
    std::string path = workDir;
    appendPath(path, name);
    const int result = runStep("/bin/sh '%s'", path.c_str());
    remove(path.c_str());
    if (result != 0) LOG_MSG(LOG_LVL_ERROR, "Failed to run script \"%s\"", path.c_str());
    return result;
}
