// Names out of a spec stand between single quotes in a shell's line, are arguments of tar, and become files
// of the work directory beside the device's own.

#include "rules.h"
#include "shell_lines.h"
#include "tars.h"
#include "work_dir.h"

#include <algorithm>

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
    return std::any_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

std::string firstStep(std::string name) {
    while (name.compare(0, 2, "./") == 0)
        name.erase(0, 2);
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
        findings->add(code, spec.at(member.key), why);
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
        if (name.empty()) return add(eNameEmpty, member, "tar finds no member without a name.");
        if (name.find('\'') != std::string::npos)
            add(eNameQuote, member, "A single quote ends the quoting, and the rest runs as a command.");
        if (hasControl(name))
            add(eNameNewline, member, "A line feed or other control character tears the command's line.");
        if (name.find('\\') != std::string::npos)
            add(eNameBackslash, member, "tar takes a backslash and what follows it for another character.");
        if (name[0] == '-')
            add(eNameHyphen, member, "tar takes a name that begins with a hyphen for an option.");
        if (climbs(name)) add(eMemberClimbs, member, "The name leads out of the device's work directory.");
        const std::string step = firstStep(name);
        if (isOwnFile(step)) {
            add(eNameCollides, member,
                "What is extracted as \"" + name + "\" lands on the device's own " + workPath(step) + ".");
        }
        const size_t length = longestLine(member);
        if (length > kLongestLine) {
            add(eCommandTooLong, member,
                "It makes a command line of " + std::to_string(length) + " characters, and the device runs " +
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
