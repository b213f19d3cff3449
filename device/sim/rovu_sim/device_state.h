// A device as a directory: what it is, which set it runs, and what a restart makes of it.
//
// The directory holds: `device` (model, versions, running set), `uboot.env`, `ubi/` (the volumes), `tmp/`,
// `app0/` and `ssh/` (the device's /tmp, /app0 and /etc/ssh), `calls.log`, `reboot-requested` after a
// reboot, and `run/` (what belongs to one run).
#pragma once

#include <cstdint>
#include <string>

namespace rovusim {

struct DeviceOptions {
    std::string model = "RV-20";
    std::string kernelRelease = "3.10.49-2";
    std::string rootfsVersion = "2.4.1";
    uint32_t totalLebs = 1024;
};

struct Device {
    std::string model;
    std::string kernelRelease;  // where the kernel volume names none
    std::string rootfsVersion;  // where the root volume names none
    uint32_t totalLebs = 0;
    unsigned runningSet = 0;  // 0 or 1
};

/// Makes a device that runs set 0, with six volumes that hold something, in a directory that must not exist.
/// \return 0, EEXIST, ENOSPC if `totalLebs` is too small for the volumes, or another positive errno value.
int createDevice(const std::string& stateDir, const DeviceOptions& options);

/// \return 0, ENOENT if `stateDir` is no device, or another positive errno value.
int loadDevice(const std::string& stateDir, Device* device);
int saveDevice(const std::string& stateDir, const Device& device);

/// The release that uname shows: a line `version=X` in the first 256 bytes of the running set's kernel
/// volume, else the device's own.
/// \return 0 or a positive errno value.
int kernelReleaseInUse(const std::string& stateDir, std::string* release);

/// The same of the running set's root volume.
int rootfsVersionInUse(const std::string& stateDir, std::string* version);

/// The version line of a volume's head; empty if there is none or no such volume.
std::string versionInVolume(const std::string& stateDir, const std::string& volume);

/// The kernel command line of the running set, with its newline.
std::string kernelCommandLine(unsigned runningSet);

/// The set that the boot loader would start: the lowest byte of `bootswitcher`, 0 or not.
/// \return 0, EILSEQ for a value that is no hexadecimal number, or another positive errno value.
int setToBoot(const std::string& stateDir, unsigned* set);

/// Plays the boot: /tmp is emptied, the running set becomes the one to boot, a reboot request is cleared.
/// On failure nothing has changed, and `why`, which may be null, says in words what is wrong.
/// \return 0, EBUSY while a command runs in the device, ENODEV if the set cannot boot, or another errno.
int restartDevice(const std::string& stateDir, std::string* why);

/// Whether `reboot` has run since the last restart.
bool rebootRequested(const std::string& stateDir);
int requestReboot(const std::string& stateDir);

/// Where a file of the device stands outside, for paths under /tmp, /app0 and /etc/ssh; else empty.
std::string outsidePath(const std::string& stateDir, const std::string& pathOnDevice);

/// Writes such a file, and makes the directories above it.
/// \return 0, EINVAL for a path elsewhere, or another positive errno value.
int putDeviceFile(const std::string& stateDir, const std::string& pathOnDevice, const std::string& bytes);

}  // namespace rovusim
