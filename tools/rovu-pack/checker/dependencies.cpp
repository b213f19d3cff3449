// Dependency lists as sets of versions: plain ranges intersect, negated ones exclude.
//
// The set that boots, if the update does not write all of it. The running volumes are not carried over:
// a volume that is not written holds what an earlier update left there.

#include "checker/dependencies.h"

#include "checker/rules.h"
#include "spec_view/device_verdict.h"
#include "util/version.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <sstream>

namespace {

using Fields = std::vector<std::string>;

Fields fieldsOf(const std::string& version) {
    Fields fields;
    std::istringstream stream(version);
    for (std::string field; std::getline(stream, field, '.');)
        fields.push_back(field);
    return fields;
}

// Whether the fields that both have are the same.
bool agree(const Fields& one, const Fields& other) {
    return std::equal(one.begin(), one.begin() + static_cast<long>(std::min(one.size(), other.size())),
                      other.begin());
}

bool isDigit(char c) {
    return isdigit(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

std::string otherVersion(const std::string& name, const std::vector<std::string>& versions) {
    for (size_t at = 0, end = 0; at < name.size(); at = end + 1) {
        end = at;
        while (end < name.size() && (isDigit(name[end]) || name[end] == '.'))
            ++end;
        std::string found = name.substr(at, end - at);
        while (!found.empty() && !isDigit(found.back()))
            found.pop_back();
        const Fields fields = fieldsOf(found);
        const bool isWord = at > 0 && isalpha(static_cast<unsigned char>(name[at - 1])) != 0 &&
                            name[at - 1] != 'v' && name[at - 1] != 'V';
        if (fields.size() < 2 || isWord) continue;
        bool isOther = false;
        for (const std::string& version : versions) {
            const Fields own = fieldsOf(version);
            if (own.empty() || own.front() != fields.front()) continue;
            isOther = true;
            if (agree(own, fields)) return "";
        }
        if (isOther) return found;
    }
    return "";
}

namespace {

struct Range {
    bool negated;
    PackedVersion low;
    PackedVersion high;
};

using Ranges = std::vector<Range>;

// The device itself refuses anything but a triple of a kind and two versions.
bool readTriple(const LuaValue& triple, std::string* kind, Range* range) {
    if (triple.items.size() < 3) return false;
    *kind = textOfValue(triple.items[0]);
    range->negated = kind->compare(0, 1, "!") == 0;
    if (range->negated) kind->erase(0, 1);
    return parseVersion(&range->low, textOfValue(triple.items[1]).c_str()) == 0 &&
           parseVersion(&range->high, textOfValue(triple.items[2]).c_str()) == 0;
}

bool holds(const Ranges& ranges, PackedVersion version) {
    return std::all_of(ranges.begin(), ranges.end(), [version](const Range& range) {
        return (range.low <= version && version <= range.high) != range.negated;
    });
}

bool acceptsAll(const Ranges& ranges) {
    return std::all_of(ranges.begin(), ranges.end(), [](const Range& range) {
        return !range.negated && range.low == 0 && range.high == UINT64_MAX;
    });
}

// Whether any version holds: the lowest one that does is the lower end of a plain range or follows a hole.
bool isSatisfiable(const Ranges& ranges) {
    if (holds(ranges, 0)) return true;
    return std::any_of(ranges.begin(), ranges.end(), [&ranges](const Range& range) {
        if (!range.negated) return holds(ranges, range.low);
        return range.high != UINT64_MAX && holds(ranges, range.high + 1);
    });
}

struct DependencyRule {
    const SpecView& spec;
    Findings* findings;

    Ranges read(const ImageView& image) const {
        Ranges ranges;
        const LuaValue* list = findField(image.table, "dep");
        for (size_t i = 0; list != nullptr && i < list->items.size(); ++i) {
            const std::string key = image.key("dep." + std::to_string(i + 1));
            std::string kind;
            Range range = {};
            if (list->items[i].kind != LuaValue::eTable) {
                findings->add(eDepNotTable, spec.at(key),
                              "An entry that is not a table is skipped without a message.");
            } else if (readTriple(list->items[i], &kind, &range)) {
                ranges.push_back(range);
                checkKind(image, kind, key);
                if (meetsInstalled(image)) checkEnd(range, textOfValue(list->items[i].items[2]), key);
            }
        }
        return ranges;
    }

    // The list of an image that comes with a mandatory one is only ever tested against that one's version.
    bool meetsInstalled(const ImageView& image) const {
        return std::none_of(spec.images.begin(), spec.images.end(), [&image](const ImageView& other) {
            return other.isMandatory() && other.text("type") != image.text("type");
        });
    }

    void checkKind(const ImageView& image, const std::string& kind, const std::string& key) const {
        const std::string type = image.text("type");
        if (kind != type) return;
        const std::string tested = type == "kernel" ? "rootfs" : "kernel";
        findings->add(eDepWrongKind, spec.at(key),
                      "A " + type + "'s list is tested against a version of the " + tested +
                          ", whatever it names.");
    }

    // A version with fewer fields than four ends in zeros: 3.10.49.2 comes after 3.10.49.
    void checkEnd(const Range& range, const std::string& high, const std::string& key) const {
        constexpr int kDots = 3;  // between four fields
        const auto dots = std::count(high.begin(), high.end(), '.');
        if (dots >= kDots) return;
        const bool isOne = range.low == range.high;
        if (!isOne && !range.negated) return;
        const std::string next =
            high + " means " + high + ".0 and no version after it, such as " + high + ".2";
        Finding& finding =
            findings->add(range.negated ? eDepNarrowHole : eDepOneVersion, spec.at(key),
                          next + (range.negated ? ", which is not excluded." : ", which is refused."));
        if (isOne) finding.severity = eWarning;
        finding.advice += ", or with '" + high;
        for (auto i = dots; i < kDots; ++i)
            finding.advice += ".65535";
        finding.advice += "' if all after it are.";
    }

    // An optional image is only installed if the mandatory one needs it, and each accepts the other.
    void checkOptional(const ImageView& image, const Ranges& own, const ImageView& other,
                       const Ranges& others) const {
        if (image.isMandatory() || !other.isMandatory() || image.text("type") == other.text("type")) return;
        PackedVersion version = 0;
        PackedVersion otherVersion = 0;
        if (parseVersion(&version, image.text("version").c_str()) != 0) return;
        if (parseVersion(&otherVersion, other.text("version").c_str()) != 0) return;
        std::string why;
        if (acceptsAll(others)) {
            why = "the other one has no dependency that could need it.";
        } else if (!holds(others, version)) {
            why = "the other one's dependencies refuse its version.";
        } else if (!holds(own, otherVersion)) {
            why = "its own dependencies refuse the version of the other one.";
        }
        if (!why.empty())
            findings->add(eOptionalNever, spec.at(image.key("update")),
                          "No device ever installs this image: " + why);
    }

    void compare(const ImageView& image, const Ranges& ranges, const ImageView& other) const {
        PackedVersion version = 0;
        if (!image.isMandatory() || !other.isMandatory() || image.text("type") == other.text("type")) return;
        if (parseVersion(&version, other.text("version").c_str()) != 0 || holds(ranges, version)) return;
        findings->add(eDepImagesDisagree, spec.at(image.key("dep")),
                      "Both images are mandatory, and this list refuses the version of the other one.");
    }
};

}  // namespace

Findings checkDependencies(const SpecView& spec) {
    Findings findings;
    const DependencyRule rule = {spec, &findings};
    std::vector<Ranges> lists;
    for (const ImageView& image : spec.images)
        lists.push_back(rule.read(image));
    for (size_t i = 0; i < spec.images.size(); ++i) {
        const ImageView& image = spec.images[i];
        if (!isSatisfiable(lists[i])) {
            findings.add(eDepUnsatisfiable, spec.at(image.key("dep")),
                         "No version satisfies the whole list.");
            continue;
        }
        for (size_t j = 0; j < spec.images.size(); ++j) {
            rule.compare(image, lists[i], spec.images[j]);
            if (spec.images.size() == 2) rule.checkOptional(image, lists[i], spec.images[j], lists[j]);
        }
    }
    return findings;
}

namespace {

using Part = UpdateSpecVer1::Part;

struct Images {
    const Part* kernel = nullptr;
    const Part* rootfs = nullptr;
    bool switches = true;  // the device accepts the list, flashes an image and boots the other set
};

Images imagesOf(UpdateSpecVer1* record) {
    Images images;
    bool anyMandatory = false;
    for (const Part* part = firstPart(record); part != nullptr;
         part = nextPart(record, const_cast<Part*>(part))) {
        if (isScript(*part)) {
            if (endsRun(*part)) images.switches = false;
            continue;
        }
        const Part*& slot = part->type == UpdateSpecVer1::eTypeKernel ? images.kernel : images.rootfs;
        if (slot != nullptr) images.switches = false;
        slot = part;
        anyMandatory = anyMandatory || isMandatory(*part);
    }
    images.switches = images.switches && anyMandatory;
    return images;
}

struct BootSetRule {
    const SpecView& spec;
    Findings* findings;

    // `other` is null if the spec has no such image.
    void checkImage(const std::string& kind, const Part* image, const std::string& otherKind,
                    const Part* other) const {
        if (image != nullptr && isMandatory(*image)) return;
        const std::string boots =
            "the new set boots with the " + kind + " that an earlier update left there, not the running one.";
        if (image == nullptr) {
            findings->add(eStaleVolume, spec.at(""), "Without a " + kind + " image, " + boots);
        } else if (other->img.depCount == 0) {
            findings->add(eStaleVolume, updateOf(*image),
                          "This image is never flashed, since the " + otherKind + " image needs no " + kind +
                              ": " + boots);
        } else {
            findings->add(eStaleVolume, updateOf(*image),
                          "Where the " + otherKind + " image accepts the running " + kind +
                              ", this image is not flashed: " + boots);
        }
    }

    FindingPlace updateOf(const Part& image) const {
        const auto view =
            std::find_if(spec.images.begin(), spec.images.end(), [&image](const ImageView& candidate) {
                return candidate.localName == image.img.localName;
            });
        return spec.at(view == spec.images.end() ? "" : view->key("update"));
    }
};

}  // namespace

Findings checkBootSet(const SpecView& spec) {
    Findings findings;
    const DeviceLog silenced;
    const SpecRecord record = readRecord(spec.file);
    if (record == nullptr || spec.hidesParts()) return findings;
    const Images images = imagesOf(record.get());
    if (!images.switches) return findings;
    const BootSetRule rule = {spec, &findings};
    rule.checkImage("kernel", images.kernel, "rootfs", images.rootfs);
    rule.checkImage("rootfs", images.rootfs, "kernel", images.kernel);
    if (!record->clone_overlay) {
        findings.add(
            eStaleData, spec.at("clone_overlay"),
            "The overlay is not cloned: the new set boots with the data that an earlier update left there.");
    }
    return findings;
}
