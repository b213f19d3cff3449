#include "install/scripts.h"

#include "run/log_module.h"
#include "run/progress.h"
#include "run/settings.h"
#include "transfer/fetch.h"
#include "util/command.h"
#include "util/file.h"

#include <cstdio>
#include <cstring>

namespace {

using Part = UpdateSpecVer1::Part;

constexpr char kPreparationMark = '_';

}  // namespace

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

bool isPreparationScript(const Part& part) {
    if (!isScript(part)) return false;
    const char* slash = strrchr(part.name, '/');
    const char* baseName = slash == nullptr ? part.name : slash + 1;
    return baseName[0] == kPreparationMark;
}

bool fetchScriptTar(const UpdateSpecVer1& spec, const std::string& workDir, const FileKey& fileKey) {
    if (spec.script_url[0] == '\0') return true;
    std::string path = workDir;
    appendPath(path, kScriptTar);
    return fetchFile(spec.script_url, path, spec.script_dlsize, spec.script_hash, eStateDownloadingScripts,
                     fileKey) == 0;
}

bool runPreparationScripts(UpdateSpecVer1* spec, const std::string& workDir, Part** position) {
    Part* part = firstPart(spec);
    for (; part != nullptr && isPreparationScript(*part); part = nextPart(spec, part)) {
        setState(eStateRunningPreparationScripts, nullptr);
        LOG_MSG(LOG_LVL_INFO, "Running preparation script \"%s\"...", part->name);
        if (runScript(workDir, kScriptTar, part->name) != 0) return false;
    }
    *position = part;
    return true;
}
