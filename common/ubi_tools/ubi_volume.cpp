#include "ubi_tools/ubi_volume.h"

#include "log_module.h"
#include "util/command.h"
#include "util/file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/stat.h>

namespace {

constexpr uint32_t kInfoSize = 256;

// A copy of a source that the flash tool cannot take as it is; gone at the end of the scope at the latest.
struct StagingFile {
    std::string path;

    StagingFile() = default;
    ~StagingFile() { discard(); }
    StagingFile(const StagingFile&) = delete;
    StagingFile& operator=(const StagingFile&) = delete;

    void discard() {
        if (!path.empty()) remove(path.c_str());
        path.clear();
    }
};

int removeVolume(const char* name, uint32_t id, bool dryRun) {
    LOG_MSG(LOG_LVL_INFO, "Removing existing volume \"%s\" at index %u...", name, id);
    if (dryRun) return 0;
    const int result = runStep("ubirmvol '%s' -n %u", kUbiDevice, id);
    if (result != 0) LOG_MSG(LOG_LVL_ERROR, "Failed to remove UBI volume \"%s\"", name);
    return result;
}

int createVolume(const char* name, uint32_t size, bool dynamic, bool dryRun) {
    LOG_MSG(LOG_LVL_INFO, "Creating volume \"%s\" of size %u...", name, size);
    if (dryRun) return 0;
    const int result =
        runStep("ubimkvol '%s' -N '%s' -t %s -s %u", kUbiDevice, name, dynamic ? "dynamic" : "static", size);
    if (result != 0) LOG_MSG(LOG_LVL_ERROR, "Failed to create UBI volume \"%s\"", name);
    return result;
}

// Copies `source` into `tmpDir`, unless it is a regular file and can be flashed from where it is.
int stageIfNeeded(const char* name, const char* source, const char* tmpDir, StagingFile* staging) {
    struct stat info;
    if (stat(source, &info) != 0) return errno;
    if (S_ISREG(info.st_mode)) return 0;

    staging->path = tmpDir;
    appendPath(staging->path, kStagingName);
    LOG_MSG(LOG_LVL_INFO, "Copying \"%s\" to \"%s\"...", source, staging->path.c_str());
    const int result = runStep("cat '%s' > '%s'", source, staging->path.c_str());
    if (result != 0) LOG_MSG(LOG_LVL_ERROR, "Failed to write UBI volume \"%s\" to temp file.", name);
    return result;
}

int flashVolume(const char* name, uint32_t id, const char* image, bool dryRun) {
    LOG_MSG(LOG_LVL_INFO, "Flashing image \"%s\" to UBI volume %u...", image, id);
    if (dryRun) return 0;
    const int result = runStep("ubiupdatevol '%s_%u' '%s'", kUbiDevice, id, image);
    if (result != 0) LOG_MSG(LOG_LVL_ERROR, "Failed to flash UBI volume \"%s\"", name);
    return result;
}

// Compares what the volume delivers, over its whole length, and not what was meant to be written.
int verifyVolume(const char* name, uint32_t id, const char* expectedMd5) {
    char digest[kMd5Length + 1] = "";
    int exitStatus = 0;
    LOG_MSG(LOG_LVL_INFO, "Verifying new UBI volume %u...", id);
    const int32_t got =
        runCommandF(digest, sizeof digest, &exitStatus, nullptr, "md5sum '%s_%u'", kUbiDevice, id);
    if (got >= static_cast<int32_t>(kMd5Length) && exitStatus == 0 &&
        memcmp(digest, expectedMd5, kMd5Length) == 0) {
        return 0;
    }
    LOG_MSG(LOG_LVL_ERROR, "Volume verification for \"%s\" failed (%d, %d).", name, got, exitStatus);
    return EBADF;
}

int writeVolume(const char* name, const char* source, const char* expectedMd5, const char* tmpDir) {
    uint32_t id = 0;
    if (int rc = getUbiVolumeInfo(&id, name, nullptr); rc != 0) return rc;
    StagingFile staging;
    if (int rc = stageIfNeeded(name, source, tmpDir, &staging); rc != 0) return rc;
    const char* image = staging.path.empty() ? source : staging.path.c_str();
    if (int rc = flashVolume(name, id, image, false); rc != 0) return rc;
    // The read-back of a large volume must not share the room with the copy.
    staging.discard();
    return expectedMd5 == nullptr ? 0 : verifyVolume(name, id, expectedMd5);
}

}  // namespace

int getUbiVolumeInfo(uint32_t* id, const char* name, uint32_t* size) {
    char output[kInfoSize] = "";
    int exitStatus = 0;
    const int32_t got = runCommandF(output, sizeof output, &exitStatus, nullptr, "ubinfo '%s' -N '%s' 2>&-",
                                    kUbiDevice, name);
    if (got < 0) {
        LOG_MSG(LOG_LVL_ERROR, "Failed to run ubinfo for volume \"%s\"", name);
        return -got;
    }
    if (exitStatus != 0) return exitStatus;

    uint32_t foundId = 0;
    bool haveId = false;
    bool haveSize = size == nullptr;
    char* rest = nullptr;
    for (char* line = strtok_r(output, "\n", &rest); line != nullptr; line = strtok_r(nullptr, "\n", &rest)) {
        if (!haveId) haveId = sscanf(line, "Volume ID: %u", &foundId) == 1;
        if (!haveSize) haveSize = sscanf(line, "Size: %*u LEBs ( %u", size) == 1;
        if (haveId && haveSize) {
            *id = foundId;
            return 0;
        }
    }
    return EILSEQ;
}

int makeUbiVolume(const char* name, uint32_t size, bool dynamic, const char* source, const char* expectedMd5,
                  const char* tmpDir, bool dryRun) {
    if (expectedMd5 != nullptr && strlen(expectedMd5) != kMd5Length) return EINVAL;

    // A volume that cannot be looked up counts as none: if it is there after all, creating it will fail.
    uint32_t oldId = 0;
    if (getUbiVolumeInfo(&oldId, name, nullptr) == 0) {
        if (int rc = removeVolume(name, oldId, dryRun); rc != 0) return rc;
    }
    if (int rc = createVolume(name, size, dynamic, dryRun); rc != 0) return rc;
    if (source == nullptr) return 0;
    if (dryRun) return flashVolume(name, oldId, source, true);
    return writeVolume(name, source, expectedMd5, tmpDir);
}
