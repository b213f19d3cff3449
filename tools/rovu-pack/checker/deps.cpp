// Dependency lists as sets of versions: plain ranges intersect, negated ones cut holes.

#include "rules.h"
#include "util/version.h"

#include <algorithm>
#include <cstdint>

namespace {

struct Range {
    bool negated;
    PackedVersion low;
    PackedVersion high;
};

using Ranges = std::vector<Range>;

// The device refuses what is no triple of a kind and two versions, and says so itself.
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
                              "An entry that is no table is skipped without a word.");
            } else if (readTriple(list->items[i], &kind, &range)) {
                ranges.push_back(range);
                checkKind(image, kind, key);
                checkEnd(range, textOfValue(list->items[i].items[2]), key);
            }
        }
        return ranges;
    }

    void checkKind(const ImageView& image, const std::string& kind, const std::string& key) const {
        const std::string type = image.text("type");
        if (kind != type) return;
        const std::string tested = type == "kernel" ? "rootfs" : "kernel";
        findings->add(eDepWrongKind, spec.at(key),
                      "A " + type + "'s list is tested against a version of the " + tested +
                          ", whatever it names.");
    }

    // A version with fewer fields than four ends in zeros: 3.10.49.2 lies behind 3.10.49.
    void checkEnd(const Range& range, const std::string& high, const std::string& key) const {
        if (std::count(high.begin(), high.end(), '.') >= 3) return;
        const bool isOne = range.low == range.high;
        const std::string next =
            high + " means " + high + ".0 and no version after it, such as " + high + ".2";
        if (range.negated) {
            Finding& finding = findings->add(eDepNarrowHole, spec.at(key), next + ", which is not excluded.");
            if (isOne) finding.severity = eWarning;
        } else if (isOne) {
            findings->add(eDepOneVersion, spec.at(key), next + ", which is refused.");
        }
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
