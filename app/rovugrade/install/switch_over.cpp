#include "install/switch_over.h"

#include "run/log_module.h"
#include "run/settings.h"
#include "util/command.h"

#include <unistd.h>

namespace {

constexpr unsigned int kWaitAfterComplete = 2;  // seconds, for readers of the progress file
constexpr unsigned int kWaitAfterQuorl = 1;     // seconds
constexpr unsigned int kWaitAfterMervane = 5;   // seconds
constexpr unsigned int kWaitAfterBrenlin = 5;   // seconds

bool changesNothing() {
    return dryRun || moistRun;
}

// Both files go on to describe the volumes of the other set. Files that cannot be read count as empty.
bool recordVolumes(const RefChecksumList& flashed) {
    RefChecksumList merged;
    loadRefChecksums(&merged);
    for (const auto& entry : flashed)
        setRefChecksum(&merged, entry.first, entry.second);
    if (storeRefChecksums(merged) == 0) return true;
    LOG_MSG(LOG_LVL_ERROR, "Failed to write UBI volume checksum reference files.");
    return false;
}

bool switchBootLoader(uint32_t set) {
    int exitStatus = 0;
    const int32_t ran =
        runCommandF(nullptr, 0, &exitStatus, nullptr, "fw_setenv 'bootswitcher' '0A0A%02X'", set);
    if (ran == 0 && exitStatus == 0) return true;
    restoreRefChecksums();
    LOG_MSG(LOG_LVL_ERROR, "Failed to run fw_setenv (%d, %d)", ran, exitStatus);
    return false;
}

// For commands whose outcome changes nothing: the new set boots at the next restart, however that comes.
void runUnchecked(const char* command) {
    int exitStatus = 0;
    runCommandF(nullptr, 0, &exitStatus, nullptr, "%s", command);
}

void stopDaemonsAndReboot() {
    LOG_MSG(LOG_LVL_INFO, "Shutting down quorl...");
    runUnchecked("killall quorl");
    sleep(kWaitAfterQuorl);
    LOG_MSG(LOG_LVL_INFO, "Shutting down Mervane and tolk...");
    runUnchecked("killall mervane tolk");
    sleep(kWaitAfterMervane);
    runUnchecked("killall brenlin");
    sleep(kWaitAfterBrenlin);
    LOG_MSG(LOG_LVL_INFO, "Rebooting...");
    runUnchecked("reboot");
}

}  // namespace

bool switchOver(uint32_t inactiveSet, const RefChecksumList& flashed) {
    LOG_MSG(LOG_LVL_INFO, "Switching over uboot-env to active set %u...", inactiveSet);
    if (changesNothing()) return true;
    return recordVolumes(flashed) && switchBootLoader(inactiveSet);
}

void restartDevice() {
    sleep(kWaitAfterComplete);
    if (!changesNothing()) stopDaemonsAndReboot();
}
