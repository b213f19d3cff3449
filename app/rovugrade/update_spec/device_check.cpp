#include "update_spec/device_check.h"

#include "run/log_module.h"
#include "update_spec/image_selection.h"
#include "util/command.h"
#include "util/file.h"
#include "util/installed_version.h"

namespace {

constexpr uint32_t kModelSize = 32;
constexpr size_t kVersionSize = 32;

bool readModel(char (&model)[kModelSize]) {
    int exitStatus = 0;
    int eof = 0;
    const int32_t got =
        runCommandF(model, sizeof model, &exitStatus, &eof, "/usr/local/bin/readplatform.sh model");
    if (got < 0 || exitStatus != 0 || eof == 0) {
        LOG_MSG(LOG_LVL_ERROR, "Failed to read model number (%d, %d, %d)", got, exitStatus, eof);
        return false;
    }
    trimTrailingSpace(model);
    return true;
}

bool checkModel(const UpdateSpecVer1& spec) {
    char model[kModelSize];
    return readModel(model) && isModelSupported(spec, model);
}

bool readInstalledVersions(InstalledVersions* installed) {
    if (!isKernelReleaseKnown(getKernelVersion(&installed->installedKernel))) return false;
    if (!isRootfsReleaseKnown(getRootfsVersion(&installed->installedRootfs))) return false;
    char kernel[kVersionSize];
    char rootfs[kVersionSize];
    LOG_MSG(LOG_LVL_INFO, "Installed versions: kernel %s, rootfs %s",
            formatVersion(installed->installedKernel, kernel, sizeof kernel),
            formatVersion(installed->installedRootfs, rootfs, sizeof rootfs));
    return true;
}

}  // namespace

bool isModelSupported(const UpdateSpecVer1& spec, const char* model) {
    if (isModelListed(spec.hardware, model)) return true;
    LOG_MSG(LOG_LVL_ERROR, "HW model \"%s\" is not supported in spec \"%s\"", model, spec.hardware);
    return false;
}

bool isKernelReleaseKnown(int rc) {
    if (rc != 0) LOG_MSG(LOG_LVL_ERROR, "Failed to parse kernel release number: %d", rc);
    return rc == 0;
}

bool isRootfsReleaseKnown(int rc) {
    if (rc != 0) LOG_MSG(LOG_LVL_ERROR, "Failed to parse rootfs release number: %d", rc);
    return rc == 0;
}

bool checkSpecForDevice(UpdateSpecVer1* spec) {
    InstalledVersions installed;
    if (!checkModel(*spec)) return false;
    if (!readInstalledVersions(&installed)) return false;
    return selectImages(spec, installed);
}
