// Names in a spec are put between single quotes in a command line, are arguments of tar, and become files
// in the work directory, next to the device's own.
//
// The list of parts as a whole: what the device has afterwards.

#include "checker/rules.h"
#include "install/install.h"
#include "planner/steps.h"
#include "run/settings.h"
#include "spec_view/tars.h"
#include "spec_view/words.h"

#include <algorithm>
#include <cctype>
#include <cstdint>

namespace {

// A member of a tar that the device will ask for.
struct NamedMember {
    std::string key;
    std::string name;
    std::string tar;
    bool isImage;
};

constexpr char kLongestVolumeId[] = "127";  // UBI has 128 volumes

bool hasControl(const std::string& name) {
    return std::any_of(name.begin(), name.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

std::string firstStep(std::string name) {
    while (name.compare(0, 2, "./") == 0 || name.compare(0, 1, "/") == 0)
        name.erase(0, name.find('/') + 1);
    return name.substr(0, name.find('/'));
}

size_t longestLine(const NamedMember& member) {
    const size_t use =
        member.isImage ? flashLine(kLongestVolumeId, member.name).size() : scriptLine(member.name).size();
    return std::max(use, extractLine(member.tar, member.name).size());
}

struct NameRule {
    const SpecView& spec;
    Findings* findings;

    void add(FindingCode code, const NamedMember& member, const std::string& why) const {
        findings->add(code, spec.at(member.key), "\"" + member.name + "\" " + why);
    }

    bool isOwnFile(const std::string& name) const {
        for (const char* own : kDeviceFiles) {
            if (name == own) return true;
        }
        return std::any_of(spec.images.begin(), spec.images.end(),
                           [&name](const ImageView& image) { return image.localName == name; });
    }

    void check(const NamedMember& member) const {
        const std::string& name = member.name;
        if (name.empty()) return add(eNameEmpty, member, "names no member of a tar.");
        if (name.find('\'') != std::string::npos)
            add(eNameQuote, member,
                "has a single quote, which ends the quoting: the rest runs as a command.");
        if (hasControl(name))
            add(eNameNewline, member,
                "has a line feed or other control character, which breaks the command line.");
        if (name.find('\\') != std::string::npos)
            add(eNameBackslash, member,
                "has a backslash, which tar takes, with what follows it, for another character.");
        if (name[0] == '-')
            add(eNameHyphen, member, "begins with a hyphen, and tar interprets it as an option.");
        if (climbs(name)) add(eMemberClimbs, member, "leads out of the device's work directory.");
        const std::string step = firstStep(name);
        if (isOwnFile(step)) {
            add(eNameCollides, member,
                "lands on the device's own " + workPath(step) + " when it is extracted.");
        }
        const size_t length = longestLine(member);
        if (length > kLongestLine) {
            add(eCommandTooLong, member,
                "makes a command line of " + std::to_string(length) + " characters, and the device runs " +
                    std::to_string(kLongestLine) + " at most.");
        }
    }

    void image(const ImageView& image) const {
        if (image.hasText("image")) check({image.key("image"), image.text("image"), image.localName, true});
        for (const char* hook : {"preinst", "postinst"}) {
            if (!image.text(hook).empty()) check({image.key(hook), image.text(hook), image.localName, false});
        }
    }
};

}  // namespace

Findings checkNames(const SpecView& spec) {
    Findings findings;
    const NameRule rule = {spec, &findings};
    for (const ScriptView& script : spec.scripts) {
        if (!script.endsRun()) rule.check({script.key(), script.name, kScriptTar, false});
    }
    for (const ImageView& image : spec.images)
        rule.image(image);
    return findings;
}

namespace {

void checkKinds(const SpecView& spec, Findings* findings) {
    for (size_t i = 0; i < spec.images.size(); ++i) {
        const std::string type = spec.images[i].text("type");
        const auto earlier = std::find_if(
            spec.images.begin(), spec.images.begin() + static_cast<long>(i),
            [&type](const ImageView& image) { return !type.empty() && image.text("type") == type; });
        if (earlier == spec.images.begin() + static_cast<long>(i)) continue;
        findings->add(eTwoOfAKind, spec.at(spec.images[i].key("type")),
                      "The device refuses a second " + type + " image, also if both are optional.");
    }
}

// What follows the end of the run in the list, and what was flashed before it.
void checkEnd(const SpecView& spec, const ScriptView& end, Findings* findings) {
    for (size_t entry = end.entry + 1; entry <= spec.file.table.items.size(); ++entry) {
        const bool isImage = spec.file.table.items[entry - 1].kind == LuaValue::eTable;
        findings->add(eBehindExitSuccess, spec.at(std::to_string(entry)),
                      isImage ? "The image after \"exit_success\" is downloaded and never flashed."
                              : "What stands after \"exit_success\" never runs.");
    }
    for (const ImageView& image : spec.images) {
        if (image.entry > end.entry || !image.isMandatory()) continue;
        findings->add(eNoSwitch, spec.at(end.key()),
                      "Images are flashed, and the run ends without switching to them.");
        return;
    }
}

// "exit-success", "exit_sucess.sh"
bool isNearlyExitSuccess(const std::string& name) {
    std::string letters;
    for (const char c : name.substr(0, name.rfind(".sh"))) {
        if (isalpha(static_cast<unsigned char>(c)) != 0)
            letters += static_cast<char>(tolower(static_cast<unsigned char>(c)));
    }
    return letters.compare(0, 2, "ex") == 0 && letters.find("suc") != std::string::npos &&
           !nearestWord(letters, {"exitsuccess"}).empty();
}

bool isMarked(const std::string& step) {
    return !step.empty() && step[0] == '_';
}

// The first image or other script ends the preparation scripts, and the base name alone counts.
void checkPreparation(const SpecView& spec, Findings* findings) {
    size_t end = spec.images.empty() ? SIZE_MAX : spec.images.front().entry;
    for (const ScriptView& script : spec.scripts) {
        const bool isPreparation = isMarked(script.name.substr(script.name.rfind('/') + 1));
        if (!isPreparation) end = std::min(end, script.entry);
        if (isPreparation && script.entry > end)
            findings->add(ePreparationLate, spec.at(script.key()),
                          "\"" + script.name +
                              "\" runs at its place in the list, after the images are downloaded: "
                              "preparation scripts are at its beginning.");
        if (!isPreparation && isMarked(script.name) && script.entry <= end)
            findings->add(
                ePreparationLate, spec.at(script.key()),
                "\"" + script.name +
                    "\" is not a preparation script: its name, without folders, does not begin with '_'.");
    }
}

// Names that look as if they ended the run, but do not.
void checkEndNames(const SpecView& spec, Findings* findings) {
    for (const ScriptView& script : spec.scripts) {
        if (script.endsRun() || !isNearlyExitSuccess(script.name)) continue;
        findings->add(eNearlyExitSuccess, spec.at(script.key()),
                      "\"" + script.name + "\" is a script like any other, and does not end the run.");
    }
}

// Without a URL no tar is fetched, and the first script is not found.
void checkScriptSource(const SpecView& spec, Findings* findings) {
    if (spec.scripts.empty() && !spec.text("script_url").empty() && !spec.hidesParts())
        findings->add(eScriptTarUnused, spec.at("script_url"),
                      "The list has no script, so the tar is not fetched.");
    if (!spec.hasRealScript() || spec.fetchesScriptTar() || !spec.hasText("script_url")) return;
    findings->add(eScriptMissing, spec.at("script_url"), "There are scripts, but no tar that holds them.")
        .advice = "Fill in script_url, script_hash and script_dlsize.";
}

// Only tars are encrypted; without any, the key is not needed, but must still exist.
void checkKeyUse(const SpecView& spec, Findings* findings) {
    if (spec.keyOffset() < 0 || spec.fetchesScriptTar() || !spec.images.empty()) return;
    findings->add(eKeyWithoutEncryption, spec.at("encr_key_offset"), "The spec has no tar to decrypt.")
        .advice = "Take encr_key_offset out; a device without a key file fails on it.";
}

// What is hidden after a gap, or has an unknown word for its update, has a finding of its own.
bool flashesNothing(const SpecView& spec) {
    return !spec.hidesParts() &&
           std::all_of(spec.images.begin(), spec.images.end(),
                       [](const ImageView& image) { return image.text("update") == "optional"; });
}

}  // namespace

Findings checkParts(const SpecView& spec) {
    Findings findings;
    checkKinds(spec, &findings);
    checkScriptSource(spec, &findings);
    checkKeyUse(spec, &findings);
    checkPreparation(spec, &findings);
    checkEndNames(spec, &findings);
    const auto end = std::find_if(spec.scripts.begin(), spec.scripts.end(),
                                  [](const ScriptView& script) { return script.endsRun(); });
    if (end != spec.scripts.end()) {
        checkEnd(spec, *end, &findings);
    } else if (flashesNothing(spec)) {
        findings.add(eNoMandatoryImage, spec.at(""),
                     "Nothing is flashed, and the device switches to a set that this update does not write.");
    }
    return findings;
}
