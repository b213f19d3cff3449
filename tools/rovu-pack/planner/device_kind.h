// A kind of device, as far as it matters to an update.

#pragma once

#include "fault.h"

#include <cstdint>
#include <optional>
#include <string>

/// In place of a version: the volume holds nothing that boots.
constexpr char kBlank[] = "blank";

/// What the volumes of the inactive set hold before the update. Empty: not known.
struct InactiveSet {
    std::string kernel;  // release or version; kBlank
    std::string rootfs;  // version; kBlank
    std::string data;    // kBlank
};

/// Most bytes of its model that a device reads, with the line feed that ends it.
constexpr size_t kMostOfModel = 30;

/// Room on a device. What is not there is not known.
struct DeviceRoom {
    std::optional<uint64_t> tmp;   // bytes that are free in the file system of /tmp
    std::optional<uint64_t> data;  // bytes of the active set's data volume
    std::optional<uint64_t>
        freeLebs;  // for kernel and rootfs of the inactive set, whose old volumes are removed first
    std::optional<uint64_t> lebSize;  // bytes of a logical erase block; known if `freeLebs` is
};

/// A device, as far as it decides what an update does there.
struct DeviceKind {
    std::string model;
    std::string kernel;         // release of the running kernel, or its version
    std::string rootfs;         // version of the installed root file system
    InactiveSet inactive = {};  // decides nothing, but part of it may boot afterwards
    DeviceRoom room = {};
    std::string root =
        {};  // its root file system, for a rehearsal: a folder, a squashfs image or a tar; empty: not known
};

/// Reads "model=RV-20,kernel=3.10.49-2,rootfs=2.4.1", in any order, and what may be known of the inactive set:
/// "inactive-kernel=3.10.40" and "inactive-rootfs=2.3", each also "=blank", or "inactive=blank"; and of the room there:
/// "tmp=64M", "data=8M", "free-lebs=240" with "leb-size=124K"; and for a rehearsal "root=rootfs.squashfs".
Fault parseDeviceKind(const std::string& text, DeviceKind* device);
