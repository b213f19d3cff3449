// How much an update brings over the network, and how much room it takes in the device's work directory:
// all tars lie there at the same time, and one extracted member beside them.

#pragma once

#include "tars.h"

struct RoomNeed {
    uint64_t download = 0;   // bytes of the spec and the tars
    uint64_t tars = 0;       // bytes of the spec and of all tars, which stay to the end
    uint64_t extracted = 0;  // bytes of the largest member that is extracted
    bool isExact = true;     // false: sizes or limits of the spec stand in for what is not at hand
    bool isKnown = true;     // false: a tar has no limit and is not at hand
    bool clonesOverlay = false;

    uint64_t peak() const { return tars + extracted; }
};

/// \param localNames the tars that are fetched.
RoomNeed roomFor(const SpecView& spec, const Tars& tars, const std::vector<std::string>& localNames,
                 bool flashesImages);

/// The same for all tars of the spec.
RoomNeed roomForAll(const SpecView& spec, const Tars& tars);

/// Puts the need into words, for all tars of the spec; no finding if there are none.
Findings reportRoom(const SpecView& spec, const RoomNeed& room);
