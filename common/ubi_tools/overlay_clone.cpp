#include "ubi_tools/overlay_clone.h"

#include "log_module.h"
#include "ubi_tools/ubi_volume.h"
#include "util/command.h"

#include <cerrno>
#include <cstdio>

namespace {

constexpr size_t kNameSize = 12;
constexpr size_t kNodeSize = 32;

bool fits(int length, size_t size) {
    return length >= 0 && static_cast<size_t>(length) < size;
}

bool formatDataVolume(char (&name)[kNameSize], uint32_t set) {
    return fits(snprintf(name, sizeof name, "k%u_data", set), sizeof name);
}

}  // namespace

int cloneOverlay(uint32_t activeSet, uint32_t inactiveSet, const char* tmpDir, bool dryRun) {
    char source[kNameSize];
    char target[kNameSize];
    if (!formatDataVolume(source, activeSet) || !formatDataVolume(target, inactiveSet)) return EOVERFLOW;

    uint32_t id = 0;
    uint32_t size = 0;
    if (int rc = getUbiVolumeInfo(&id, source, &size); rc != 0) return rc;
    char node[kNodeSize];
    if (!fits(snprintf(node, sizeof node, "%s_%u", kUbiDevice, id), sizeof node)) return EOVERFLOW;

    LOG_MSG(LOG_LVL_INFO, "Calculate overlay MD5 sum...");
    char digest[kMd5Length + 1] = "";
    int exitStatus = 0;
    const int32_t got = runCommandF(digest, sizeof digest, &exitStatus, nullptr, "md5sum '%s'", node);
    if (got < static_cast<int32_t>(kMd5Length) || exitStatus != 0) {
        LOG_MSG(LOG_LVL_ERROR, "Failed to calculate overlay MD5 sum (%d, %d).", got, exitStatus);
    }
    // What is shorter than a digest stops makeUbiVolume() before its first command. After a negative result the buffer is
    // not defined: it may hold a whole digest of a command whose end is not known.
    if (got < 0) digest[0] = '\0';
    return makeUbiVolume(target, size, true, node, digest, tmpDir, dryRun);
}
