// The properties of a kind of device that matter to an update.

#pragma once

#include "host/fault.h"
#include "util/version.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// In place of a version: the volume holds nothing that boots.
constexpr char kBlank[] = "blank";

/// In place of a version: there is no such volume.
constexpr char kMissing[] = "missing";

/// What the volumes of the inactive set hold before the update. Empty: not known.
struct InactiveSet {
    std::string kernel;  // release or version; kBlank, kMissing
    std::string rootfs;  // version; kBlank, kMissing
    std::string data;    // kBlank, kMissing
};

/// Most bytes of its model that a device reads, with the line feed that ends it.
constexpr size_t kMostOfModel = 30;

/// Room on a device. An absent value is unknown.
struct DeviceRoom {
    std::optional<uint64_t> tmp;   // bytes that are free in the file system of /tmp
    std::optional<uint64_t> data;  // bytes of the active set's data volume
    std::optional<uint64_t>
        freeLebs;  // for kernel and rootfs of the inactive set, whose old volumes are removed first
    std::optional<uint64_t> lebSize;  // bytes of a logical erase block; known if `freeLebs` is
};

/// The properties of a device that decide what an update does there.
struct DeviceKind {
    std::string model;
    std::string kernel;         // release of the running kernel, or its version
    std::string rootfs;         // version of the installed root file system
    InactiveSet inactive = {};  // decides nothing, but part of it may boot afterwards
    DeviceRoom room = {};
    std::string processor = {};  // a word of processorWords(); empty: not known
    std::string root = {};       // for a rehearsal: a folder, a squashfs image or a tar; empty: not known
    bool mustRefuse = false;     // it is named as one that refuses the update
};

/// Reads what a device of a kind runs: of a kernel its release, of a rootfs its version.
/// \param kind "kernel" or "rootfs".
/// \return whether the device can read it; `*version` is written then.
bool readInstalled(const std::string& kind, std::string text, PackedVersion* version);

/// The words for processors that a kind may name: "mips", "arm64".
std::vector<std::string> processorWords();

/// Whether a device of that processor runs what is for `processor`, as the formats of images call it.
bool runsOn(const std::string& word, const std::string& processor);

/// Reads "model=RV-20,kernel=3.10.49-2,rootfs=2.4.1", in any order, and what may be known of the inactive set:
/// "inactive-kernel=3.10.40" and "inactive-rootfs=2.3", each, and "inactive-data" and "inactive" too, also "=blank" or
/// "=missing"; of the room there: "tmp=64M", "data=8M", "free-lebs=240" with "leb-size=124K"; "arch=mips"; and for a
/// rehearsal "root=rootfs.squashfs". "refuses:" may stand before all of it.
/// \return a fault that names the word which is wrong, and what to write instead.
Fault parseDeviceKind(const std::string& text, DeviceKind* device);
