#include "tar_members.h"

#include "comparison.h"
#include "script_content.h"

#include <cerrno>

namespace {

bool isLink(const TarMember& member) {
    return member.type == TarMember::eSymbolicLink || member.type == TarMember::eHardLink;
}

struct MemberRule {
    const SpecView& spec;
    const TarFacts& tar;
    const MemberSource& source;
    Findings* findings;

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
        if (member->type == TarMember::eDirectory || member->type == TarMember::eOther)
            return missing(required, nameOf(required.name) + " is no file.");
        if (member->type != TarMember::eFile) return;
        if (member->isSparse)
            add(eMemberSparse, required.key,
                nameOf(required.name) +
                    " is stored without its holes, and the tar of BusyBox extracts no such member.");
        if (required.isImage) {
            checkImage(required, *member);
        } else {
            checkScriptOf(required);
        }
    }

    void checkScriptOf(const RequiredMember& required) const {
        const std::string what = nameOf(required.name);
        std::string bytes;
        if (Fault fault = readScript(required.name, &bytes))
            return missing(required, what + " cannot be read: " + fault.message() + ".");
        findings->append(checkScript(bytes, what, spec.at(required.key)));
    }

    Fault readScript(const std::string& name, std::string* bytes) const {
        if (source.built == nullptr) return readTarMember(source.path, name, kMostOfScript, bytes);
        const auto found = source.built->scripts.find(name);
        if (found != source.built->scripts.end()) *bytes = found->second;
        return {};
    }

    void checkImage(const RequiredMember& required, const TarMember& member) const {
        const std::string what = nameOf(required.name);
        const Comparison comparison = {spec, findings};
        comparison.size(eVolumeTooSmall, tar.keyPrefix + "imsize", {what, member.size}, "volume",
                        tar.volumeSize);
        ImageContent read;
        if (source.built == nullptr) {
            std::string digest;
            const MemberSink take = [&read](uint64_t offset, const char* bytes, size_t size) {
                read.add(offset, bytes, size);
            };
            if (Fault fault = digestTarMember(source.path, required.name, take, source.progress, &digest))
                return missing(required, what + " cannot be read: " + fault.message() + ".");
            comparison.digest(tar.keyPrefix + "image_md5", what, digest, tar.imageMd5);
        }
        const ImageContent& content = source.built == nullptr ? read : source.built->image;
        findings->append(checkImageContent(content, tar.kind, what, spec.at(required.key)));
    }
};

}  // namespace

Findings checkMembers(const SpecView& spec, const TarFacts& tar, const MemberSource& source) {
    Findings findings;
    const MemberRule rule = {spec, tar, source, &findings};
    rule.checkAll();
    for (const RequiredMember& required : tar.required)
        rule.checkRequired(required);
    return findings;
}
