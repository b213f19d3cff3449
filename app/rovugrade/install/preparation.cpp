#include "preparation.h"

#include "fetch_file.h"
#include "log_module.h"
#include "progress.h"
#include "scripts.h"
#include "util/path.h"
#include "work_dir.h"

#include <cstring>

namespace {

using Part = UpdateSpecVer1::Part;

constexpr char kPreparationMark = '_';

}  // namespace

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
