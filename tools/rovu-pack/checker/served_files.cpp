// One tar after the other: the file as it travels, then its plain form, then its members.

#include "served_files.h"

#include "digests.h"
#include "encryption.h"
#include "files.h"
#include "image_content.h"
#include "image_format.h"
#include "interruption.h"
#include "progress_bar.h"
#include "script_content.h"
#include "temporary_file.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>

namespace {

constexpr uint64_t kCipherBlock = 16;
constexpr size_t kMostOfScript = 1048576;  // bytes that are looked at

// The file of `folder` that is served as `url`: the longest end of the URL's path that is there, so that two
// files of one name may stand in folders of their own. What is not there has the URL's last step.
std::string servedFile(const std::string& folder, const std::string& url) {
    const size_t scheme = url.find("://");
    std::string path = url.substr(0, url.find_first_of("?#"));
    path = path.substr(scheme == std::string::npos ? 0 : scheme + 3);
    std::error_code ignored;
    for (size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/')) {
        path.erase(0, slash + 1);
        std::string candidate = folder;
        candidate += "/" + path;
        if (!climbs(path) && std::filesystem::is_regular_file(candidate, ignored)) return candidate;
    }
    return path.empty() ? "" : folder + "/" + path;
}

// Whatever the spec says of its volume, which may be wrong.
bool hasImage(const TarFacts& tar) {
    return std::any_of(tar.required.begin(), tar.required.end(),
                       [](const RequiredMember& required) { return required.isImage; });
}

bool isLink(const TarMember& member) {
    return member.type == TarMember::eSymbolicLink || member.type == TarMember::eHardLink;
}

std::string nameOf(const TarFacts& tar, const std::string& member) {
    return "\"" + member + "\" of " + tar.path;
}

struct FileRule {
    const SpecView& spec;
    const FileOptions& options;
    ProgressBar* bar;
    Findings* findings;
    FileKey key = {};

    // The place is always one of the spec; which file it is about stands in the sentence.
    Finding& add(FindingCode code, const std::string& at, const std::string& why) const {
        return findings->add(code, spec.at(at), why);
    }

    // Once for all tars.
    Fault loadKey() {
        if (options.secrets.empty() || spec.keyOffset() < 0) return {};
        Fault fault = readSecret(options.secrets, static_cast<int64_t>(spec.keyOffset()), &key);
        if (fault.code() != EINVAL) return fault;
        add(eDecryptionFails, "encr_key_offset", "The key file is too short: " + fault.message() + ".")
            .advice = "Fix the offset, or give the devices' key file.";
        return {};
    }

    void checkSize(FindingCode code, const std::string& at, const std::string& what, uint64_t size,
                   const std::string& noun, double given) const {
        if (given <= 0 || given >= static_cast<double>(size)) return;
        add(code, at,
            what + " has " + std::to_string(size) + " bytes, for which the " + noun + " of " +
                std::to_string(static_cast<uint64_t>(given)) + " is too small.");
    }

    void checkDigest(const std::string& at, const std::string& what, const std::string& digest,
                     const std::string& given) const {
        if (given.empty() || given == digest) return;
        add(eDigestMismatch, at, what + " has the digest " + digest + ", and the spec has " + given + ".");
    }

    // Each tar is read once as it travels, once to be decrypted, and once for its image.
    void expectWork(const Tars& tars) const {
        uint64_t bytes = 0;
        for (const TarFacts& tar : tars) {
            std::error_code missing;
            const uint64_t size = std::filesystem::file_size(tar.path, missing);
            if (missing) continue;
            bytes += size;
            if (key.present) bytes += size;
            if (hasImage(tar)) bytes += size;
        }
        bar->expect(bytes);
    }

    Fault check(TarFacts* tar) const {
        bar->begin(std::filesystem::path(tar->path).filename());
        if (!find(tar)) return interruption();
        std::string plain = tar->path;
        TemporaryFile decrypted;
        if (spec.keyOffset() < 0) {
            openPlain(tar);
        } else if (Fault fault = openEncrypted(tar, &decrypted, &plain)) {
            return fault;
        }
        if (!tar->opened) return {};
        checkMembers(*tar);
        for (const RequiredMember& required : tar->required)
            checkRequired(*tar, required, plain);
        return interruption();
    }

    Fault measure(const TarFacts& tar, uint64_t* size, std::string* sha256) const {
        if (tar.path.empty()) return {ENOENT, "its URL names no file"};
        if (!options.justBuilt) return digestFile(tar.path, bar->progress(), size, sha256);
        std::error_code fault;
        *size = std::filesystem::file_size(tar.path, fault);
        return fault ? fileFault(tar.path, fault.value()) : Fault();
    }

    // The file as it travels.
    bool find(TarFacts* tar) const {
        std::string sha256 = tar->hash;
        if (Fault fault = measure(*tar, &tar->size, &sha256)) {
            add(eTarMissing, tar->keyPrefix + "url",
                "The tar is not among the files: " + fault.message() + ".");
            return false;
        }
        tar->found = true;
        checkDigest(tar->keyPrefix + "hash", tar->path, sha256, tar->hash);
        checkSize(eLimitTooSmall, tar->keyPrefix + "dlsize", tar->path, tar->size, "limit", tar->limit);
        return true;
    }

    bool list(TarFacts* tar, const std::string& path) const {
        std::string compression;
        tar->opened = tar->size > 0 && !listTar(path, &tar->members, &compression);
        if (tar->opened && !compression.empty())
            add(eCompressedTar, tar->keyPrefix + "url",
                tar->path + " is compressed by " + compression + ", which not every tar detects.");
        return tar->opened;
    }

    void openPlain(TarFacts* tar) const {
        if (list(tar, tar->path)) return;
        if (tar->size == 0 || tar->size % kCipherBlock != 0) {
            add(eNotATar, tar->keyPrefix + "url", tar->path + " is no tar.");
        } else {
            add(eEncryptedWithoutKey, tar->keyPrefix + "url",
                tar->path + " is no tar and may be an encrypted one, but the spec names no key.");
        }
    }

    // Leaves the path of the plain tar in `*path`.
    Fault openEncrypted(TarFacts* tar, TemporaryFile* decrypted, std::string* path) const {
        if (list(tar, tar->path)) {
            add(eKeyWithoutEncryption, "encr_key_offset",
                "The device decrypts every tar, and " + tar->path + " is plain.");
            return {};
        }
        if (options.secrets.empty())
            add(eTarNotOpened, "encr_key_offset", tar->path + " is encrypted, and was not opened.");
        if (!key.present) return {};
        if (Fault fault = decrypted->open()) return fault;
        *path = decrypted->path();
        Fault fault = decryptFileTo(tar->path, *path, key, bar->progress());
        if (fault.code() == EBADMSG) {
            add(eDecryptionFails, "encr_key_offset", "A tar does not decrypt: " + fault.message() + ".");
            return {};
        }
        if (fault) return fault.of("decrypting " + tar->path);
        if (!list(tar, *path))
            add(eDecryptionFails, "encr_key_offset", "What the key makes of " + tar->path + " is no tar.");
        return {};
    }

    void checkMembers(const TarFacts& tar) const {
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
            Finding& finding = add(code, at, nameOf(tar, member.name) + fault);
            if (!required) finding.severity = eWarning;  // nothing extracts it
        }
    }

    void missing(const RequiredMember& required, const std::string& why) const {
        add(required.isImage ? eMemberMissing : eScriptMissing, required.key, why);
    }

    void checkRequired(const TarFacts& tar, const RequiredMember& required, const std::string& plain) const {
        const TarMember* member = tar.member(required.name);
        if (member == nullptr) {
            const std::string dotted = "./" + required.name;
            return missing(required, tar.path + (tar.member(dotted) != nullptr
                                                     ? " has it as \"" + dotted + "\", which is another name."
                                                     : " has no member \"" + required.name + "\"."));
        }
        if (member->type == TarMember::eDirectory || member->type == TarMember::eOther)
            return missing(required, nameOf(tar, required.name) + " is no file.");
        if (member->type != TarMember::eFile) return;
        if (member->isSparse)
            add(eMemberSparse, required.key,
                nameOf(tar, required.name) +
                    " is stored without its holes, and the tar of BusyBox extracts no such member.");
        if (required.isImage) {
            checkImage(tar, required, *member, plain);
        } else {
            checkScriptOf(tar, required, plain);
        }
    }

    void checkScriptOf(const TarFacts& tar, const RequiredMember& required, const std::string& plain) const {
        const std::string what = nameOf(tar, required.name);
        std::string bytes;
        if (Fault fault = readTarMember(plain, required.name, kMostOfScript, &bytes))
            return missing(required, what + " cannot be read: " + fault.message() + ".");
        findings->append(checkScript(bytes, what, spec.at(required.key)));
    }

    void checkImage(const TarFacts& tar, const RequiredMember& required, const TarMember& member,
                    const std::string& plain) const {
        const std::string what = nameOf(tar, required.name);
        checkSize(eVolumeTooSmall, tar.keyPrefix + "imsize", what, member.size, "volume", tar.volumeSize);
        std::string digest;
        ImageContent content;
        if (Fault fault = readImage(required.name, plain, &content, &digest))
            return missing(required, what + " cannot be read: " + fault.message() + ".");
        if (!digest.empty()) checkDigest(tar.keyPrefix + "image_md5", what, digest, tar.imageMd5);
        findings->append(checkImageContent(content, member.size, tar.kind, what, spec.at(required.key)));
    }

    // What was just built is read no further than to its first bytes that tell something, and needs no digest.
    Fault readImage(const std::string& name, const std::string& plain, ImageContent* content,
                    std::string* digest) const {
        if (options.justBuilt) {
            std::string head;
            if (Fault fault = readTarMember(plain, name, kFormatHead, &head)) return fault;
            content->add(0, head.data(), head.size());
            if (!content->isUniform()) return {};
        }
        const MemberSink take = [content](uint64_t offset, const char* bytes, size_t size) {
            content->add(offset, bytes, size);
        };
        return digestTarMember(plain, name, take, options.justBuilt ? nullptr : bar->progress(), digest);
    }
};

}  // namespace

Fault checkServedFiles(const SpecView& spec, const FileOptions& options, ServedFiles* files) {
    ProgressBar ownBar;
    ProgressBar* bar = options.bar == nullptr ? &ownBar : options.bar;
    FileRule rule = {spec, options, bar, &files->findings};
    if (Fault fault = rule.loadKey()) return fault;
    files->tars = tarsOf(spec);
    for (TarFacts& tar : files->tars)
        tar.path = servedFile(options.folder, tar.url);
    if (options.bar == nullptr) rule.expectWork(files->tars);
    for (TarFacts& tar : files->tars) {
        if (Fault fault = rule.check(&tar)) return fault;
    }
    return {};
}
