#include "device_kind.h"

#include "util/installed_version.h"

#include <algorithm>
#include <cerrno>
#include <sstream>

namespace {

// What stands after each "name=" of the room.
struct RoomWords {
    std::string tmp;
    std::string data;
    std::string freeLebs;
    std::string lebSize;
};

std::string* roomFieldOf(RoomWords* words, const std::string& name) {
    if (name == "tmp") return &words->tmp;
    if (name == "data") return &words->data;
    if (name == "free-lebs") return &words->freeLebs;
    if (name == "leb-size") return &words->lebSize;
    return nullptr;
}

std::string* fieldOf(DeviceKind* device, const std::string& name) {
    if (name == "model") return &device->model;
    if (name == "kernel") return &device->kernel;
    if (name == "rootfs") return &device->rootfs;
    if (name == "inactive-kernel") return &device->inactive.kernel;
    if (name == "inactive-rootfs") return &device->inactive.rootfs;
    if (name == "root") return &device->root;
    return nullptr;
}

Fault refuseText(const std::string& text) {
    return {EINVAL, "\"" + text + "\" is no device: model=...,kernel=...,rootfs=... is required"};
}

Fault refuseWord(const std::string& text, const std::string& why) {
    return {EINVAL, "\"" + text + "\": " + why};
}

bool isBlankOr(const std::string& text, int rc) {
    return text.empty() || text == kBlank || rc == 0;
}

// `isAllBlank`: "inactive=blank" was given.
Fault settleInactive(const std::string& text, bool isAllBlank, InactiveSet* inactive) {
    if (isAllBlank && !(inactive->kernel + inactive->rootfs).empty())
        return refuseWord(text, "inactive=blank goes with no other word of the inactive set");
    PackedVersion version = 0;
    std::string release = inactive->kernel;
    if (!isBlankOr(inactive->kernel, parseKernelRelease(&version, release.data())))
        return refuseWord(text, "inactive-kernel is a kernel release, or blank");
    if (!isBlankOr(inactive->rootfs, parseVersion(&version, inactive->rootfs.c_str())))
        return refuseWord(text, "inactive-rootfs is a version, or blank");
    if (isAllBlank) *inactive = {kBlank, kBlank, kBlank};
    return {};
}

// A number, as "240" or, if it is one of bytes, "64K", "64M" or "64G". Empty: `*number` stays as it is.
bool readNumber(const std::string& word, bool isBytes, std::optional<uint64_t>* number) {
    constexpr size_t kMostDigits = 12;
    const std::string units = isBytes ? "KMG" : "";
    if (word.empty()) return true;
    const size_t digits = std::min(word.find_first_not_of("0123456789"), word.size());
    if (digits == 0 || digits > kMostDigits || word.size() > digits + 1) return false;
    const size_t unit = digits == word.size() ? std::string::npos : units.find(word[digits]);
    if (digits != word.size() && unit == std::string::npos) return false;
    *number = std::stoull(word) << (unit == std::string::npos ? 0 : 10 * (unit + 1));
    return true;
}

Fault settleRoom(const std::string& text, const RoomWords& words, DeviceRoom* room) {
    if (!readNumber(words.tmp, true, &room->tmp) || !readNumber(words.data, true, &room->data) ||
        !readNumber(words.lebSize, true, &room->lebSize) || room->lebSize == 0)
        return refuseWord(text, "tmp, data and leb-size are numbers of bytes, as 65536, 64K or 64M");
    if (!readNumber(words.freeLebs, false, &room->freeLebs))
        return refuseWord(text, "free-lebs is a number of logical erase blocks");
    if (room->freeLebs.has_value() != room->lebSize.has_value())
        return refuseWord(text, "free-lebs and leb-size go together");
    return {};
}

}  // namespace

Fault parseDeviceKind(const std::string& text, DeviceKind* device) {
    std::istringstream stream(text);
    bool isAllBlank = false;
    RoomWords words;
    for (std::string piece; std::getline(stream, piece, ',');) {
        if (piece == "inactive=blank" && !isAllBlank) {
            isAllBlank = true;
            continue;
        }
        const size_t equals = piece.find('=');
        const std::string name = piece.substr(0, equals);
        std::string* field = roomFieldOf(&words, name);
        if (field == nullptr) field = fieldOf(device, name);
        if (equals == std::string::npos) field = nullptr;
        if (field == nullptr || !field->empty()) return refuseText(text);
        *field = piece.substr(equals + 1);
        if (field->empty()) return refuseText(text);
    }
    if (device->model.empty() || device->kernel.empty() || device->rootfs.empty()) return refuseText(text);
    if (Fault fault = settleRoom(text, words, &device->room)) return fault;
    return settleInactive(text, isAllBlank, &device->inactive);
}
