#include "room.h"

#include <algorithm>

namespace {

uint64_t largestMember(const TarFacts& tar, RoomNeed* room) {
    uint64_t largest = 0;
    if (!tar.opened) {
        room->isExact = false;
        return tar.volumeSize > 0 ? static_cast<uint64_t>(tar.volumeSize) : 0;
    }
    for (const RequiredMember& required : tar.required) {
        const TarMember* member = tar.member(required.name);
        if (member != nullptr) largest = std::max(largest, member->size);
    }
    return largest;
}

}  // namespace

uint64_t RoomNeed::lebs(uint64_t lebSize) const {
    uint64_t lebs = 0;
    for (const VolumeNeed& volume : volumes)
        lebs += (volume.bytes + lebSize - 1) / lebSize;
    return lebs;
}

Fit fitsTmp(const RoomNeed& need, const DeviceRoom& room) {
    if (!room.tmp) return eFitUnknown;
    if (need.peak() > *room.tmp) return eFitsNot;
    const bool isOverlayKnown = !need.clonesOverlay || need.overlay != 0;
    return need.isKnown && isOverlayKnown ? eFits : eFitUnknown;
}

Fit fitsLebs(const RoomNeed& need, const DeviceRoom& room) {
    if (!room.freeLebs || !room.lebSize) return eFitUnknown;
    return need.lebs(*room.lebSize) > *room.freeLebs ? eFitsNot : eFits;
}

RoomNeed roomFor(const SpecView& spec, const Tars& tars, const std::vector<std::string>& localNames,
                 bool flashesImages) {
    RoomNeed room;
    room.tars = spec.file.bytes.size();
    for (const std::string& name : localNames) {
        const TarFacts* tar = findTar(tars, name);
        if (tar == nullptr) continue;
        if (tar->expectedSize() == 0) room.isKnown = false;
        if (!tar->found) room.isExact = false;
        if (tar->lebSize != 0) room.imageLebSize = tar->lebSize;
        room.tars += tar->expectedSize();
        room.extracted = std::max(room.extracted, largestMember(*tar, &room));
    }
    room.download = room.tars;
    room.clonesOverlay = flashesImages && spec.number("clone_overlay").value_or(0) != 0;
    return room;
}

RoomNeed roomForAll(const SpecView& spec, const Tars& tars) {
    std::vector<std::string> names;
    for (const TarFacts& tar : tars)
        names.push_back(tar.localName);
    return roomFor(spec, tars, names, !spec.images.empty());
}

Findings reportRoom(const SpecView& spec, const RoomNeed& room) {
    Findings findings;
    if (room.tars == spec.file.bytes.size()) return findings;
    std::string why = "The work directory holds up to " + std::to_string(room.peak()) +
                      " bytes: " + std::to_string(room.tars) + " of spec and tars, " +
                      std::to_string(room.extracted) + " of the largest member";
    if (!room.isExact) why += ", by the spec's own numbers";
    if (!room.isKnown) why += ", and what a tar without a limit brings";
    if (room.clonesOverlay) why += "; a copy of the overlay, if larger, takes that member's place";
    findings.add(eRoomNeeded, spec.at(""), why + ".");
    return findings;
}
