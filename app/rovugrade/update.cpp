#include "update.h"

#include "install/install.h"
#include "install/scripts.h"
#include "install/switch_over.h"
#include "run/exit_paths.h"
#include "run/log_module.h"
#include "run/progress.h"
#include "run/settings.h"
#include "transfer/fetch.h"
#include "ubi_tools/active_set.h"
#include "update_spec/device_check.h"
#include "update_spec/spec.h"
#include "update_spec/spec_reader.h"

#include <string>

namespace {

// The stages in the order of their states. A stage that enters its state itself, because it may have nothing to do or
// enters it anew for each part, says so.
bool runStages(const std::string& workDir, UpdateSpecVer1** owned) {
    setState(eStateInitializing, nullptr);
    BootSets sets;
    if (getActiveSet(&sets.active, true) != 0) return false;
    sets.inactive = sets.active ^ 1;

    lua_State* L = downloadSpec(workDir);  // enters eStateDownloadingSpec
    if (L == nullptr) return false;

    setState(eStateParsingSpec, nullptr);
    UpdateSpecVer1* spec = *owned = readSpec(L);
    if (spec == nullptr) return false;

    setState(eStateCheckingDependencies, nullptr);
    if (!checkSpecForDevice(spec)) return false;
    FileKey fileKey;
    if (loadFileKey(spec->encr_key_offset, &fileKey) != 0) {
        LOG_MSG(LOG_LVL_ERROR, "Failed to load key for file decryption");
        return false;
    }

    if (!fetchScriptTar(*spec, workDir, fileKey)) return false;  // enters eStateDownloadingScripts
    UpdateSpecVer1::Part* position = nullptr;
    if (!runPreparationScripts(spec, workDir, &position))
        return false;  // enters eStateRunningPreparationScripts
    if (!downloadImages(spec, position, workDir, fileKey)) return false;  // enters eStateDownloadingImages

    // Enters eStateRunningScripts, eStateFlashingOverlay and eStateFlashingImages, as the parts demand.
    const WalkResult walk = walkParts(spec, position, workDir, sets);
    if (walk == eWalkFailed) return false;
    if (walk == eWalkDone) {
        setState(eStateSwitchingVolume, nullptr);
        if (!switchOver(sets.inactive, flashedVolumes)) return false;
        LOG_MSG(LOG_LVL_INFO, "Update completed");
        setState(eStateComplete, nullptr);
        restartDevice();
    }
    setState(eStateComplete, nullptr);
    return true;
}

}  // namespace

int runUpdate() {
    const std::string workDir = kWorkDir;
    UpdateSpecVer1* spec = nullptr;
    const bool succeeded = runStages(workDir, &spec);
    settleOutcome();
    if (!succeeded) setState(eStateError, nullptr);
    freeSpec(spec);
    return succeeded ? 0 : 1;
}
