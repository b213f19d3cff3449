// One tar after the other: the file as it travels, then its plain form, then its members.

#include "served_files.h"

#include "digests.h"
#include "encryption.h"
#include "files.h"
#include "progress_bar.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace {

constexpr uint64_t kCipherBlock = 16;

// A folder of this run's own for decrypted tars; gone at the end of the scope.
struct PlainFolder {
    std::string path;

    PlainFolder() {
        const char* parent = getenv("TMPDIR");
        path = std::string(parent == nullptr ? "/tmp" : parent) + "/rovu-pack-XXXXXX";
        if (mkdtemp(path.data()) == nullptr) path.clear();
    }
    ~PlainFolder() {
        std::error_code ignored;
        if (!path.empty()) std::filesystem::remove_all(path, ignored);
    }
    PlainFolder(const PlainFolder&) = delete;
    PlainFolder& operator=(const PlainFolder&) = delete;
};

bool climbs(const std::string& name) {
    return name.compare(0, 1, "/") == 0 || ("/" + name + "/").find("/../") != std::string::npos;
}

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
    return std::any_of(tar.wanted.begin(), tar.wanted.end(),
                       [](const WantedMember& wanted) { return wanted.isImage; });
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
    const PlainFolder& folder;
    ProgressBar* bar;
    Findings* findings;
    FileKey key = {};

    // The place is always one of the spec; which file it is about stands in the sentence.
    Finding& add(FindingCode code, const std::string& at, const std::string& why) const {
        return findings->add(code, spec.at(at), why);
    }

    // Once for all tars.
    int loadKey(std::string* error) {
        if (options.secrets.empty() || spec.keyOffset() < 0) return 0;
        const int rc = readSecret(options.secrets, static_cast<int64_t>(spec.keyOffset()), &key, error);
        if (rc != EINVAL) return rc;
        add(eDecryptionFails, "encr_key_offset", "The key file is too short: " + *error + ".").advice =
            "Mend the offset, or give the devices' key file.";
        return 0;
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

    // The file as it travels.
    bool find(TarFacts* tar) const {
        FileDigests digests = {};
        std::string fault = "its URL names no file";
        if (tar->path.empty() || digestFile(tar->path, bar->progress(), &digests, &fault) != 0) {
            add(eTarMissing, tar->keyPrefix + "url", "The tar is not among the files: " + fault + ".");
            return false;
        }
        tar->found = true;
        tar->size = digests.size;
        checkDigest(tar->keyPrefix + "hash", tar->path, digests.sha256, tar->hash);
        checkSize(eLimitTooSmall, tar->keyPrefix + "dlsize", tar->path, tar->size, "limit", tar->limit);
        return true;
    }

    bool list(TarFacts* tar, const std::string& path) const {
        std::string compression;
        std::string unwanted;
        tar->opened = tar->size > 0 && listTar(path, &tar->members, &compression, &unwanted) == 0;
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
    void openEncrypted(TarFacts* tar, std::string* path) const {
        if (list(tar, tar->path)) {
            add(eKeyWithoutEncryption, "encr_key_offset",
                "The device decrypts every tar, and " + tar->path + " is plain.");
            return;
        }
        if (options.secrets.empty())
            add(eTarNotOpened, "encr_key_offset", tar->path + " is encrypted, and was not opened.");
        if (!key.present) return;
        std::string fault;
        *path = folder.path + "/" + tar->localName;
        if (decryptFileTo(tar->path, *path, key, bar->progress(), &fault) != 0) {
            add(eDecryptionFails, "encr_key_offset", "A tar does not decrypt: " + fault + ".");
        } else if (!list(tar, *path)) {
            add(eDecryptionFails, "encr_key_offset", "What the key makes of " + tar->path + " is no tar.");
        }
    }

    void checkMembers(const TarFacts& tar) const {
        for (const TarMember& member : tar.members) {
            std::string at = tar.keyPrefix + "url";
            bool wanted = false;
            for (const WantedMember& candidate : tar.wanted) {
                if (candidate.name != member.name) continue;
                at = candidate.key;
                wanted = true;
            }
            FindingCode code = eMemberLink;
            std::string fault = " is a link.";
            if (!isLink(member)) {
                if (!climbs(member.name)) continue;
                code = eMemberClimbs;
                fault = " leads out of the directory that it is extracted to.";
            }
            Finding& finding = add(code, at, nameOf(tar, member.name) + fault);
            if (!wanted) finding.severity = eWarning;  // nothing extracts it
        }
    }

    void missing(const WantedMember& wanted, const std::string& why) const {
        add(wanted.isImage ? eMemberMissing : eScriptMissing, wanted.key, why);
    }

    void checkWanted(const TarFacts& tar, const WantedMember& wanted, const std::string& plain) const {
        const TarMember* member = tar.member(wanted.name);
        if (member == nullptr) {
            const std::string dotted = "./" + wanted.name;
            return missing(wanted, tar.path + (tar.member(dotted) != nullptr
                                                   ? " has it as \"" + dotted + "\", which is another name."
                                                   : " has no member \"" + wanted.name + "\"."));
        }
        if (member->type == TarMember::eDirectory || member->type == TarMember::eOther)
            return missing(wanted, nameOf(tar, wanted.name) + " is no file.");
        if (wanted.isImage && member->type == TarMember::eFile) checkImage(tar, wanted, *member, plain);
    }

    void checkImage(const TarFacts& tar, const WantedMember& wanted, const TarMember& member,
                    const std::string& plain) const {
        const std::string what = nameOf(tar, wanted.name);
        checkSize(eVolumeTooSmall, tar.keyPrefix + "imsize", what, member.size, "volume", tar.volumeSize);
        std::string digest;
        std::string fault;
        if (digestTarMember(plain, wanted.name, bar->progress(), &digest, &fault) != 0)
            return missing(wanted, what + " cannot be read: " + fault + ".");
        checkDigest(tar.keyPrefix + "image_md5", what, digest, tar.imageMd5);
    }
};

}  // namespace

int checkFiles(const SpecView& spec, const FileOptions& options, Tars* tars, Findings* findings,
               std::string* error) {
    const PlainFolder folder;
    if (folder.path.empty()) return fileError("a folder for decrypted tars", errno, error);
    ProgressBar bar;
    FileRule rule = {spec, options, folder, &bar, findings};
    if (int rc = rule.loadKey(error); rc != 0) return rc;
    for (TarFacts& tar : *tars)
        tar.path = servedFile(options.folder, tar.url);
    rule.expectWork(*tars);
    for (TarFacts& tar : *tars) {
        bar.begin(tar.path);
        if (!rule.find(&tar)) continue;
        std::string plain = tar.path;
        if (spec.keyOffset() < 0) {
            rule.openPlain(&tar);
        } else {
            rule.openEncrypted(&tar, &plain);
        }
        if (!tar.opened) continue;
        rule.checkMembers(tar);
        for (const WantedMember& wanted : tar.wanted)
            rule.checkWanted(tar, wanted, plain);
    }
    return 0;
}
