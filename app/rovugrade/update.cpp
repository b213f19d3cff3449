// The frame of a run: the order of its stages, and the one way out that all failures share.
//
// A stage that fails has logged at its own place. Nothing that was done on the inactive set is undone: the
// device boots the active set until the boot loader's variable moves.

#include "update.h"

#include "device_check.h"
#include "file_key.h"
#include "install.h"
#include "load_spec.h"
#include "log_module.h"
#include "preparation.h"
#include "progress.h"
#include "settings.h"
#include "spec.h"
#include "spec_reader.h"
#include "switch_over.h"
#include "ubi_tools/active_set.h"

#include <string>

namespace {

using Part = UpdateSpecVer1::Part;

bool findBootSets(BootSets* sets) {
    setState(eStateInitializing, nullptr);
    if (getActiveSet(&sets->active, true) != 0) return false;
    sets->inactive = sets->active ^ 1;
    return true;
}

UpdateSpecVer1* obtainSpec(const std::string& workDir) {
    lua_State* L = loadSpec(workDir);
    if (L == nullptr) return nullptr;
    setState(eStateParsingSpec, nullptr);
    return readSpec(L);
}

bool checkApplicability(UpdateSpecVer1* spec, FileKey* fileKey) {
    setState(eStateCheckingDependencies, nullptr);
    if (!checkSpecForDevice(spec)) return false;
    if (loadFileKey(spec->encr_key_offset, fileKey) != 0) {
        LOG_MSG(LOG_LVL_ERROR, "Failed to load key for file decryption");
        return false;
    }
    return true;
}

WalkResult installParts(UpdateSpecVer1* spec, Part* position, const std::string& workDir,
                        const FileKey& fileKey, const BootSets& sets) {
    if (!downloadImages(spec, position, workDir, fileKey)) return eWalkFailed;
    return walkParts(spec, position, workDir, sets);
}

bool finish(const BootSets& sets) {
    if (!switchOver(sets.inactive, flashedVolumes)) return false;
    completeAndRestart();
    return true;
}

bool applySpec(UpdateSpecVer1* spec, const std::string& workDir, const BootSets& sets) {
    FileKey fileKey;
    Part* position = nullptr;
    if (!checkApplicability(spec, &fileKey)) return false;
    if (!fetchScriptTar(*spec, workDir, fileKey)) return false;
    if (!runPreparationScripts(spec, workDir, &position)) return false;
    const WalkResult walk = installParts(spec, position, workDir, fileKey, sets);
    if (walk == eWalkFailed) return false;
    if (walk == eWalkDone && !finish(sets)) return false;
    setState(eStateComplete, nullptr);
    return true;
}

bool carryOut(const std::string& workDir, UpdateSpecVer1** spec) {
    BootSets sets;
    if (!findBootSets(&sets)) return false;
    *spec = obtainSpec(workDir);
    return *spec != nullptr && applySpec(*spec, workDir, sets);
}

}  // namespace

int runUpdate() {
    const std::string workDir = kWorkDir;
    UpdateSpecVer1* spec = nullptr;
    const bool succeeded = carryOut(workDir, &spec);
    if (!succeeded) setState(eStateError, nullptr);
    freeSpec(spec);
    return succeeded ? 0 : 1;
}
