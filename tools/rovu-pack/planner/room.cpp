#include "planner/room.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace {

constexpr uint64_t kCipherBlock = 16;  // bytes

// The entry of the list that a key like "3.image" is of.
size_t entryOf(const std::string& key) {
    return strtoul(key.c_str(), nullptr, 10);
}

// The entry at which the run ends; past all of them if it does not.
size_t endOf(const SpecView& spec) {
    for (const ScriptView& script : spec.scripts) {
        if (script.endsRun()) return script.entry;
    }
    return SIZE_MAX;
}

uint64_t largestMember(const TarFacts& tar, size_t end, RoomNeed* room) {
    uint64_t largest = 0;
    for (const RequiredMember& required : tar.required) {
        if (entryOf(required.key) > end) continue;
        const TarMember* member = tar.member(required.name);
        if (member != nullptr) largest = std::max(largest, member->size);
        if (tar.opened || !required.isImage) continue;
        largest = tar.volumeSize > 0 ? static_cast<uint64_t>(tar.volumeSize) : 0;
    }
    if (!tar.opened) room->isExact = false;
    return wholePages(largest);
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
    if (need.lebs(*room.lebSize) > *room.freeLebs) return eFitsNot;
    const bool areKnown = std::none_of(need.volumes.begin(), need.volumes.end(),
                                       [](const VolumeNeed& volume) { return volume.bytes == 0; });
    return areKnown ? eFits : eFitUnknown;
}

RoomNeed roomFor(const SpecView& spec, const Tars& tars, const std::vector<std::string>& localNames) {
    RoomNeed room;
    const size_t end = endOf(spec);
    // A whole block: a tar ends at one. The file is cut when it is decrypted, which may spare a page.
    const uint64_t padding = spec.keyOffset() < 0 ? 0 : kCipherBlock;
    bool flashesImages = false;
    room.download = spec.file.bytes.size();
    room.tars = wholePages(room.download);
    for (const std::string& name : localNames) {
        const TarFacts* tar = findTar(tars, name);
        if (tar == nullptr) continue;
        if (tar->expectedSize() == 0) room.isKnown = false;
        if (!tar->found) room.isExact = false;
        if (tar->lebSize != 0) room.imageLebSize = tar->lebSize;
        room.download += tar->expectedSize();
        room.tars += wholePages(tar->expectedSize() - std::min(tar->expectedSize(), padding));
        room.extracted = std::max(room.extracted, largestMember(*tar, end, &room));
        if (!tar->kind.empty() && entryOf(tar->keyPrefix) < end) flashesImages = true;
    }
    room.clonesOverlay = flashesImages && spec.number("clone_overlay").value_or(0) != 0;
    return room;
}

RoomNeed roomForAll(const SpecView& spec, const Tars& tars) {
    std::vector<std::string> names;
    for (const TarFacts& tar : tars)
        names.push_back(tar.localName);
    return roomFor(spec, tars, names);
}

Findings reportRoom(const SpecView& spec, const RoomNeed& room) {
    Findings findings;
    if (room.download == spec.file.bytes.size()) return findings;
    std::string why = "An update takes up to " + std::to_string(room.peak()) +
                      " bytes of /tmp, in whole pages: " + std::to_string(room.tars) + " of spec and tars, " +
                      std::to_string(room.extracted) + " of the largest member";
    if (!room.isExact) why += ", by the spec's own numbers";
    if (!room.isKnown) why += ", and what a tar without a limit brings";
    if (room.clonesOverlay) why += "; a copy of the overlay, if larger, takes that member's place";
    findings.add(eRoomNeeded, spec.at(""), why + ".");
    return findings;
}
