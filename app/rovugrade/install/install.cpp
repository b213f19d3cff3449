#include "install/install.h"

#include "install/scripts.h"
#include "run/log_module.h"
#include "run/progress.h"
#include "run/settings.h"
#include "transfer/fetch.h"
#include "ubi_tools/overlay_clone.h"
#include "ubi_tools/ubi_volume.h"
#include "util/file.h"

#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstring>

RefChecksumList flashedVolumes;

namespace {

using Image = UpdateSpecVer1::Image;
using Part = UpdateSpecVer1::Part;

bool runWalkScript(const Part& part, const std::string& workDir) {
    setState(eStateRunningScripts, nullptr);
    LOG_MSG(LOG_LVL_INFO, "Running script \"%s\"...", part.name);
    return runScript(workDir, kScriptTar, part.name) == 0;
}

bool runPreinst(const Image& image, const std::string& workDir) {
    if (image.preinst[0] == '\0') return true;
    LOG_MSG(LOG_LVL_INFO, "Running pre-installation script \"%s\"...", image.preinst);
    return runScript(workDir, image.localName, image.preinst) == 0;
}

bool runPostinst(const Image& image, const std::string& workDir) {
    if (image.postinst[0] == '\0') return true;
    LOG_MSG(LOG_LVL_INFO, "Running post-installation script \"%s\"...", image.postinst);
    return runScript(workDir, image.localName, image.postinst) == 0;
}

// Extracts the image from its tar, writes it to the volume and records what was written. The image takes the most room
// of all and is gone before anything else runs.
bool flashMember(const Image& image, const char* volume, const std::string& workDir) {
    LOG_MSG(LOG_LVL_INFO, "Extracting image \"%s\"...", image.image);
    int result = dryRun ? 0 : extractFromTar(workDir, image.localName, image.image);
    std::string imagePath = workDir;
    appendPath(imagePath, image.image);
    if (result == 0) {
        result = makeUbiVolume(volume, image.imsize, false, imagePath.c_str(), image.image_md5,
                               workDir.c_str(), dryRun);
        if (result == 0) flashedVolumes.emplace_back(volume, image.image_md5);
    }
    remove(imagePath.c_str());
    return result == 0;
}

bool installImage(const Part& part, const std::string& workDir, uint32_t inactiveSet) {
    setState(eStateFlashingImages, nullptr);
    if (!runPreinst(part.img, workDir)) return false;
    char volume[kVolumeNameSize];
    if (make_ubiVolume(inactiveSet, part, volume) != 0) return false;
    if (!flashMember(part.img, volume, workDir)) return false;
    return runPostinst(part.img, workDir);
}

bool clone(const std::string& workDir, const BootSets& sets) {
    setState(eStateFlashingOverlay, nullptr);
    return cloneOverlay(sets.active, sets.inactive, workDir.c_str(), dryRun) == 0;
}

}  // namespace

bool downloadImages(UpdateSpecVer1* spec, Part* position, const std::string& workDir,
                    const FileKey& fileKey) {
    for (Part* part = position; part != nullptr; part = nextPart(spec, part)) {
        if (isScript(*part)) continue;
        std::string path = workDir;
        appendPath(path, part->img.localName);
        if (fetchFile(part->img.url, path, part->img.dlsize, part->img.hash, eStateDownloadingImages,
                      fileKey) != 0) {
            return false;
        }
    }
    return true;
}

WalkResult walkParts(UpdateSpecVer1* spec, Part* position, const std::string& workDir, const BootSets& sets) {
    // The clone waits for the first image: scripts before it see the inactive overlay as it was.
    bool clonePending = spec->clone_overlay;
    for (Part* part = position; part != nullptr; part = nextPart(spec, part)) {
        if (endsRun(*part)) return eWalkExitSuccess;
        if (isScript(*part)) {
            if (!runWalkScript(*part, workDir)) return eWalkFailed;
            continue;
        }
        if (clonePending && !clone(workDir, sets)) return eWalkFailed;
        if (!installImage(*part, workDir, sets.inactive)) return eWalkFailed;
        clonePending = false;
    }
    return eWalkDone;
}

bool endsRun(const Part& part) {
    return isScript(part) && strcmp(part.name, kExitSuccess) == 0;
}

int make_ubiVolume(uint32_t set, const Part& part, char (&name)[kVolumeNameSize]) {
    assert(part.type != UpdateSpecVer1::eTypeScript);
    const char* suffix = part.type == UpdateSpecVer1::eTypeKernel ? "" : "_root";
    const int length = snprintf(name, sizeof name, "k%u%s", set, suffix);
    return length >= 0 && static_cast<size_t>(length) < sizeof name ? 0 : EOVERFLOW;
}
