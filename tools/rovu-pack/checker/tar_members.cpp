#include "checker/tar_members.h"

#include "checker/dependencies.h"
#include "checker/rules.h"
#include "content/image_format.h"
#include "content/script_content.h"

#include <algorithm>
#include <cctype>

namespace {

bool isLink(const TarMember& member) {
    return member.type == TarMember::eSymbolicLink || member.type == TarMember::eHardLink;
}

// The name in its normal form: "./a" is "a".
std::string plainName(const std::string& name) {
    return name.compare(0, 2, "./") == 0 ? name.substr(2) : name;
}

// Of what an image's tar may hold besides the image: "preinst", "kernel_post.sh", "pre-install".
bool isNamedLikeHook(const std::string& name) {
    std::string base = name.substr(name.rfind('/') + 1);
    std::transform(base.begin(), base.end(), base.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const bool isShell = base.size() > 3 && base.compare(base.size() - 3, 3, ".sh") == 0;
    return isShell || base.find("preinst") != std::string::npos || base.find("postinst") != std::string::npos;
}

struct MemberRule {
    const SpecView& spec;
    const Tars& tars;
    TarFacts& tar;
    const TarContent& content;
    Findings* findings;
    std::string* scripts;  // the bytes of all that were judged

    Finding& add(FindingCode code, const std::string& at, const std::string& why) const {
        return findings->add(code, spec.at(at), why);
    }

    std::string nameOf(const std::string& member) const { return "\"" + member + "\" of " + tar.path; }

    void checkAll() const {
        for (const TarMember& member : tar.members) {
            std::string at = tar.keyPrefix + "url";
            bool required = false;
            for (const RequiredMember& candidate : tar.required) {
                if (candidate.name != member.name) continue;
                at = candidate.key;
                required = true;
            }
            FindingCode code = eMemberLink;
            std::string fault = " is a link.";
            if (!isLink(member)) {
                if (!climbs(member.name)) continue;
                code = eMemberClimbs;
                fault = " leads out of the directory that it is extracted to.";
            }
            Finding& finding = add(code, at, nameOf(member.name) + fault);
            if (!required) finding.severity = eWarning;  // nothing extracts it
        }
    }

    // Probably a zero too many: space to grow is less than this.
    void checkLooseVolume(const std::string& what, uint64_t size) const {
        constexpr double kTimes = 8;
        constexpr double kReserve = 16777216;
        if (tar.volumeSize <= kTimes * static_cast<double>(size) || tar.volumeSize <= kReserve) return;
        add(eVolumeLoose, tar.keyPrefix + "imsize",
            what + " has " + std::to_string(size) + " bytes, and its volume " +
                std::to_string(static_cast<uint64_t>(tar.volumeSize)) + ".");
    }

    // After the scripts were judged. The device extracts the members that the spec names, and no other.
    void checkUnused() const {
        for (const TarMember& member : tar.members) {
            const std::string name = plainName(member.name);
            const bool isScriptTar = tar.kind.empty();
            if (member.type != TarMember::eFile || isRequired(name)) continue;
            if (!isScriptTar && !isNamedLikeHook(name)) continue;
            const std::string base = name.substr(name.rfind('/') + 1);
            if (base.compare(0, 1, ".") == 0) continue;              // a tool's own
            if (scripts->find(base) != std::string::npos) continue;  // a script may extract it
            Finding& finding =
                add(eScriptUnused, tar.keyPrefix + "url",
                    nameOf(member.name) + " is named nowhere in the spec, so nothing runs it.");
            if (isScriptTar) continue;
            finding.severity = eWarning;
            finding.advice = "Name it as preinst or postinst of the image, or leave it out of the tar.";
        }
    }

    // By any part of the spec that has the same file.
    bool isRequired(const std::string& name) const {
        return std::any_of(tars.begin(), tars.end(), [this, &name](const TarFacts& other) {
            return other.path == tar.path && std::any_of(other.required.begin(), other.required.end(),
                                                         [&name](const RequiredMember& required) {
                                                             return plainName(required.name) == name;
                                                         });
        });
    }

    void missing(const RequiredMember& required, const std::string& why) const {
        add(required.isImage ? eMemberMissing : eScriptMissing, required.key, why);
    }

    void checkRequired(const RequiredMember& required) const {
        const TarMember* member = tar.member(required.name);
        if (member == nullptr) {
            const std::string dotted = "./" + required.name;
            return missing(required, tar.path + (tar.member(dotted) != nullptr
                                                     ? " has it as \"" + dotted + "\", which is another name."
                                                     : " has no member \"" + required.name + "\"."));
        }
        if (member->type == TarMember::eDirectory)
            return missing(required, nameOf(required.name) + " is a folder, and a file is required.");
        if (member->type == TarMember::eOther)
            return missing(required, nameOf(required.name) + " is not a file.");
        if (member->type != TarMember::eFile) return;
        const auto isSame = [&required](const TarMember& other) { return other.name == required.name; };
        if (std::count_if(tar.members.begin(), tar.members.end(), isSame) > 1)
            add(eMemberTwice, required.key, nameOf(required.name) + " is in the tar more than once.");
        if (member->isSparse)
            add(eMemberSparse, required.key,
                nameOf(required.name) +
                    " is stored as a sparse file, which the tar of BusyBox does not extract.");
        if (required.isImage) {
            checkImage(required, *member);
        } else {
            checkScriptOf(required);
        }
    }

    std::string kernelVersion() const {
        for (const ImageView& image : spec.images) {
            if (image.text("type") == "kernel") return image.text("version");
        }
        return "";
    }

    // "rootfs-2.4.0.img" of a rootfs 2.5.0
    void checkNamedVersion(const RequiredMember& required) const {
        const std::string named = otherVersion(required.name, {tar.version});
        if (named.empty()) return;
        Finding& finding = add(eImageVersion, required.key,
                               nameOf(required.name) + " is named after version " + named +
                                   ", and the spec has version " + tar.version + ".");
        finding.advice = "Give the image of that version, or the version of this image.";
    }

    void checkScriptOf(const RequiredMember& required) const {
        const auto found = content.scripts.find(required.name);
        const std::string bytes = found == content.scripts.end() ? "" : found->second;
        findings->append(checkScript(bytes, nameOf(required.name), spec.at(required.key)));
        *scripts += bytes;
    }

    void checkImage(const RequiredMember& required, const TarMember& member) const {
        const std::string what = nameOf(required.name);
        const Comparison comparison = {spec, findings};
        comparison.size(eVolumeTooSmall, tar.keyPrefix + "imsize", {what, member.size}, "volume",
                        tar.volumeSize);
        if (content.imageMd5)
            comparison.digest(tar.keyPrefix + "image_md5", what, *content.imageMd5, tar.imageMd5);
        findings->append(checkImageContent(
            content.image, {tar.kind, tar.version, kernelVersion(), what, spec.at(required.key)}));
        const ImageFormat format = findFormat(content.image.head());
        tar.lebSize = format.lebSize;
        tar.processor = format.processor;
        checkNamedVersion(required);
        checkLooseVolume(what, member.size);
    }
};

}  // namespace

Findings checkMembers(const SpecView& spec, const Tars& tars, const TarContent& content, TarFacts* tar) {
    Findings findings;
    std::string scripts;
    const MemberRule rule = {spec, tars, *tar, content, &findings, &scripts};
    rule.checkAll();
    for (const RequiredMember& required : tar->required)
        rule.checkRequired(required);
    rule.checkUnused();
    return findings;
}
