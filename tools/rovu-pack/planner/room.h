// The download of an update, and the room that it needs: in the device's work directory, where all
// tars lie at the same time, and one extracted member or a copy of the overlay beside them; and on the flash.

#pragma once

#include "planner/device_kind.h"
#include "spec_view/tars.h"

#include <algorithm>

/// Bytes of a page: a file in memory takes whole ones.
constexpr uint64_t kPage = 4096;

constexpr uint64_t wholePages(uint64_t bytes) {
    return (bytes + kPage - 1) / kPage * kPage;
}

/// A volume that is made, or stays.
struct VolumeNeed {
    std::string kind;  // "kernel" or "rootfs", also "old" ones; "data" if there is none to replace
    uint64_t bytes;    // that are asked for; whole erase blocks are taken. 0: not known
};

struct RoomNeed {
    uint64_t download = 0;   // bytes of the spec and the tars
    uint64_t tars = 0;       // bytes that the spec and all tars take, which stay to the end
    uint64_t extracted = 0;  // bytes that the largest member takes that is extracted
    bool isExact = true;     // false: sizes or limits of the spec stand in for what is not at hand
    bool isKnown = true;     // false: a tar has no limit and is not at hand
    bool clonesOverlay = false;
    uint64_t overlay = 0;             // bytes that its copy takes; 0: not known, or none
    uint64_t imageLebSize = 0;        // bytes of the erase blocks that an image is made for; 0: not known
    std::vector<VolumeNeed> volumes;  // in the order in which they are made; only of a device

    /// With the progress file and, while nothing is extracted, its successor.
    uint64_t peak() const { return kPage + tars + std::max({extracted, wholePages(overlay), kPage}); }
    /// Logical erase blocks of all `volumes`.
    uint64_t lebs(uint64_t lebSize) const;
};

/// Whether what is needed is there.
enum Fit { eFitUnknown, eFits, eFitsNot };

/// In /tmp. Unknown also if what is needed is known in part, and that part fits.
Fit fitsTmp(const RoomNeed& need, const DeviceRoom& room);

/// On the flash. Unknown also if the size of a volume is not known, and the others fit.
Fit fitsLebs(const RoomNeed& need, const DeviceRoom& room);

/// \param localNames the tars that are fetched. What follows the end of the run is not extracted.
RoomNeed roomFor(const SpecView& spec, const Tars& tars, const std::vector<std::string>& localNames);

/// The same for all tars of the spec.
RoomNeed roomForAll(const SpecView& spec, const Tars& tars);

/// Describes the room that is needed for all tars of the spec; no finding without tars.
Findings reportRoom(const SpecView& spec, const RoomNeed& room);
