#include "planner/device_kind.h"

#include "host/text.h"
#include "spec_view/words.h"
#include "util/installed_version.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <sstream>

namespace {

using Words = std::vector<std::string>;
using Values = std::map<std::string, std::string>;

const Words kNames = {
    "model", "kernel", "rootfs", "inactive-kernel", "inactive-rootfs", "inactive", "inactive-data",
    "arch",  "tmp",    "data",   "leb-size",        "free-lebs",       "root"};

// A uImage does not say the order of bytes. Among them are qemu's names, which the simulator's messages have.
const std::map<std::string, Words> kProcessors = {
    {"mips", {"MIPS", "32-bit big-endian MIPS"}},
    {"mipsel", {"MIPS", "32-bit little-endian MIPS"}},
    {"mips64", {"64-bit MIPS", "64-bit big-endian MIPS"}},
    {"mips64el", {"64-bit MIPS", "64-bit little-endian MIPS"}},
    {"arm", {"ARM"}},
    {"armeb", {"ARM"}},
    {"arm64", {"64-bit ARM"}},
    {"aarch64", {"64-bit ARM"}},
    {"powerpc", {"PowerPC"}},
    {"ppc", {"PowerPC"}},
    {"riscv", {"RISC-V"}},
    {"riscv32", {"RISC-V"}},
    {"riscv64", {"RISC-V"}},
    {"x86", {"x86"}},
    {"i386", {"x86"}},
    {"x86-64", {"x86-64", "x86"}},
    {"x86_64", {"x86-64", "x86"}},
};

Fault refuse(const std::string& why) {
    return {EINVAL, why};
}

std::string didYouMean(const std::string& word, const Words& words) {
    const std::string nearest = nearestWord(word, words);
    return nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?";
}

std::string listed(const Words& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : ", ") + word;
    return text;
}

// The pieces "name=value" between commas.
Fault readPieces(const std::string& text, Values* values) {
    std::istringstream stream(text);
    for (std::string piece; std::getline(stream, piece, ',');) {
        const size_t equals = piece.find('=');
        const std::string name = piece.substr(0, equals);
        if (name.find_first_of(" \t\r\n") != std::string::npos)
            return refuse("\"" + name + "\" has whitespace in it: remove it");
        if (std::find(kNames.begin(), kNames.end(), name) == kNames.end()) {
            const std::string near = didYouMean(name, kNames);
            return refuse("\"" + name + "\" is not a property of a device" +
                          (near.empty() ? "; known are " + listed(kNames) : near));
        }
        if (equals == std::string::npos || equals + 1 == piece.size())
            return refuse("\"" + name + "\" has no value: write one after its \"=\"");
        if (!values->emplace(name, piece.substr(equals + 1)).second)
            return refuse("\"" + name + "\" is given twice: keep one");
    }
    for (const char* required : {"model", "kernel", "rootfs"}) {
        if (values->count(required) == 0)
            return refuse(std::string("\"") + required + "\" is missing: write " + required + "=...");
    }
    return {};
}

std::string take(const Values& values, const std::string& name) {
    const auto found = values.find(name);
    return found == values.end() ? "" : found->second;
}

bool isGone(const std::string& word) {
    return word.empty() || word == kBlank || word == kMissing;
}

Fault settleInactive(const Values& values, InactiveSet* inactive) {
    *inactive = {take(values, "inactive-kernel"), take(values, "inactive-rootfs"),
                 take(values, "inactive-data")};
    PackedVersion version = 0;
    if (!isGone(inactive->kernel) && !readInstalled("kernel", inactive->kernel, &version))
        return refuse("inactive-kernel is a kernel release, as 3.10.49-2, or blank or missing");
    if (!isGone(inactive->rootfs) && !readInstalled("rootfs", inactive->rootfs, &version))
        return refuse("inactive-rootfs is a version, as 2.4.1, or blank or missing");
    if (!isGone(inactive->data)) return refuse("inactive-data is blank or missing");
    const std::string all = take(values, "inactive");
    if (all.empty()) return {};
    if (!isGone(all)) return refuse("inactive is blank or missing");
    if (!(inactive->kernel + inactive->rootfs + inactive->data).empty())
        return refuse("inactive=" + all + " goes with no other word of the inactive set");
    *inactive = {all, all, all};
    return {};
}

// A number above 0, as "240" or, if it is one of bytes, "64K", "64M" or "64G".
bool readNumber(const std::string& word, const std::string& units, std::optional<uint64_t>* number) {
    constexpr size_t kMostDigits = 12;
    if (word.empty()) return true;
    const size_t digits = std::min(word.find_first_not_of("0123456789"), word.size());
    if (digits == 0 || digits > kMostDigits || word.size() > digits + 1) return false;
    const size_t unit = digits == word.size() ? std::string::npos : units.find(word[digits]);
    if (digits != word.size() && unit == std::string::npos) return false;
    *number = std::stoull(word) << (unit == std::string::npos ? 0 : 10 * (unit + 1));
    return true;
}

Fault settleRoom(const Values& values, DeviceRoom* room) {
    const std::pair<const char*, std::optional<uint64_t>*> sizes[] = {
        {"tmp", &room->tmp}, {"data", &room->data}, {"leb-size", &room->lebSize}};
    for (const auto& [name, number] : sizes) {
        if (!readNumber(take(values, name), "KMG", number) || *number == 0)
            return refuse(std::string(name) + " is a number of bytes above 0, as 65536, 64K or 64M");
    }
    if (!readNumber(take(values, "free-lebs"), "", &room->freeLebs))
        return refuse("free-lebs is a number of logical erase blocks, as 240");
    if (room->freeLebs.has_value() != room->lebSize.has_value())
        return refuse("free-lebs and leb-size go together");
    return {};
}

Fault settleProcessor(const Values& values, std::string* processor) {
    *processor = take(values, "arch");
    const Words words = processorWords();
    if (processor->empty() || kProcessors.count(*processor) != 0) return {};
    return refuse("arch=" + *processor + " is none of " + listed(words) + didYouMean(*processor, words));
}

}  // namespace

bool readInstalled(const std::string& kind, std::string text, PackedVersion* version) {
    return (kind == "kernel" ? parseKernelRelease(version, text.data())
                             : parseVersion(version, text.c_str())) == 0;
}

std::vector<std::string> processorWords() {
    Words words;
    for (const auto& processor : kProcessors)
        words.push_back(processor.first);
    return words;
}

bool runsOn(const std::string& word, const std::string& processor) {
    const Words& all = kProcessors.at(word);
    return std::find(all.begin(), all.end(), processor) != all.end();
}

Fault parseDeviceKind(const std::string& text, DeviceKind* device) {
    constexpr char kRefuses[] = "refuses:";
    Values values;
    std::string pieces = text;
    device->mustRefuse = splitStart(text, kRefuses, &pieces);
    Fault fault = readPieces(pieces, &values);
    if (!fault) fault = settleInactive(values, &device->inactive);
    if (!fault) fault = settleRoom(values, &device->room);
    if (!fault) fault = settleProcessor(values, &device->processor);
    if (fault) return fault.of("--device " + text);
    device->model = values["model"];
    device->kernel = values["kernel"];
    device->rootfs = values["rootfs"];
    device->root = take(values, "root");
    return {};
}
