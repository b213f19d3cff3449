// A simulated device as a directory: its description, its active set, and its restart.
//
// The directory holds: `device` (model, versions, active set), `uboot.env`, `ubi/` (the volumes), `tmp/`,
// `app0/` and `ssh/` (the device's /tmp, /app0 and /etc/ssh), `root/` (its root file system, made by the first run),
// `calls.log`, `reboot-requested` after a reboot, and `run/` (files of one run).
#pragma once

#include "util/descriptor.h"

#include <cstdint>
#include <string>

namespace rovusim {

/// A device that has the workstation's programs, see Device::root.
constexpr const char* kHostRoot = "host";

struct DeviceOptions {
    std::string model = "RV-20";
    std::string kernelRelease = "3.10.49-2";
    std::string rootfsVersion = "2.4.1";
    uint32_t totalLebs = 1024;
    uint64_t tmpBytes = 0;  // that fit into /tmp; 0: as many as the host has
    std::string root;       // see Device::root
};

struct Device {
    std::string model;
    std::string kernelRelease;  // used if the kernel volume names none
    std::string rootfsVersion;  // used if the root volume names none
    uint32_t totalLebs = 0;
    unsigned runningSet = 0;  // 0 or 1
    uint64_t tmpBytes = 0;    // that fit into /tmp; 0: as many as the host has
    // Its root file system: an absolute path to a folder, a squashfs image or a tar; kHostRoot; empty: BusyBox. If the
    // running set's root volume holds an image of these kinds, that is the root instead.
    std::string root;
};

/// Makes a device with six filled volumes and active set 0. The directory must not exist.
/// \return 0, EEXIST, ENOSPC if `totalLebs` is too small for the volumes, or another positive errno value.
[[nodiscard]] int createDevice(const std::string& stateDir, const DeviceOptions& options);

/// Removes the directory of a device that no command runs in, as far as that is possible.
void removeDevice(const std::string& stateDir);

/// Reads the description. `device` is written on success only.
/// \return 0, ENOENT if `stateDir` is not a device, or another positive errno value.
int loadDevice(const std::string& stateDir, Device* device);
int saveDevice(const std::string& stateDir, const Device& device);

/// The release that uname returns: X of a line `version=X` in the first 256 bytes of the active set's kernel
/// volume, else the device's own.
/// \return 0 or a positive errno value.
int kernelReleaseInUse(const std::string& stateDir, std::string* release);

/// The root file system's version, read likewise from the active set's root volume.
/// \return 0 or a positive errno value.
int rootfsVersionInUse(const std::string& stateDir, std::string* version);

/// The version that a volume names in its first 256 bytes; empty if there is none or no such volume.
std::string versionInVolume(const std::string& stateDir, const std::string& volume);

/// The kernel command line of the active set, with its newline.
std::string kernelCommandLine(unsigned runningSet);

/// The set that the boot loader would start: set 0 if the lowest byte of `bootswitcher` is 0, else set 1.
/// \return 0, EILSEQ for a value that is not a hexadecimal number, or another positive errno value.
[[nodiscard]] int setToBoot(const std::string& stateDir, unsigned* set);

/// Simulates a boot: empties /tmp, makes the set to boot the active one, and clears a reboot request. On
/// failure nothing has changed, and `why`, which may be null, receives the reason.
/// \return 0, EBUSY while a command runs in the device, ENODEV if the set cannot boot, or another errno.
[[nodiscard]] int restartDevice(const std::string& stateDir, std::string* why);

/// Whether `reboot` has run since the last restart.
bool rebootRequested(const std::string& stateDir);
[[nodiscard]] int requestReboot(const std::string& stateDir);

/// The host's path of a file of the device, for paths below /tmp, /app0 and /etc/ssh; else empty.
std::string outsidePath(const std::string& stateDir, const std::string& pathOnDevice);

/// Writes a file of the device, and makes the directories above it.
/// \return 0, EINVAL for a path elsewhere, or another positive errno value.
[[nodiscard]] int putDeviceFile(const std::string& stateDir, const std::string& pathOnDevice,
                                const std::string& bytes);

/// Takes the lock without waiting. It is held until `lock` is closed.
/// \return 0, EBUSY if another process holds it, ENOENT if `stateDir` is not a device, or another errno
/// value.
[[nodiscard]] int lockDevice(const std::string& stateDir, zem::Descriptor* lock);

}  // namespace rovusim
