// One tar after the other: the file as it travels, then its plain form, then its members.

#include "check_files.h"

#include "digests.h"
#include "encryption.h"
#include "text_files.h"

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

bool isLink(const TarMember& member) {
    return member.type == TarMember::eSymbolicLink || member.type == TarMember::eHardLink;
}

struct FileRule {
    const SpecView& spec;
    const FileOptions& options;
    const PlainFolder& folder;
    Findings* findings;

    Finding& add(FindingCode code, const TarFacts& tar, const std::string& key,
                 const std::string& why) const {
        FindingPlace place = spec.at(key);
        if (tar.found) place.file = tar.path;
        return findings->add(code, place, why);
    }

    // The file as it travels.
    bool find(TarFacts* tar) const {
        const std::string path = servedFile(options.folder, tar->url);
        FileDigests digests = {};
        std::string fault = "its URL names no file";
        if (path.empty() || digestFile(path, nullptr, &digests, &fault) != 0) {
            add(eTarMissing, *tar, tar->keyPrefix + "url", "The tar is not among the files: " + fault + ".");
            return false;
        }
        tar->found = true;
        tar->path = path;
        tar->size = digests.size;
        if (!tar->hash.empty() && tar->hash != digests.sha256)
            add(eDigestMismatch, *tar, tar->keyPrefix + "hash",
                "The SHA-256 digest of the file is " + digests.sha256 + ".");
        if (tar->limit > 0 && tar->limit < static_cast<double>(tar->size))
            add(eLimitTooSmall, *tar, tar->keyPrefix + "dlsize",
                "The file has " + std::to_string(tar->size) + " bytes, and the download stops at the limit.");
        return true;
    }

    bool list(TarFacts* tar, const std::string& path) const {
        std::string unwanted;
        tar->opened = tar->size > 0 && listTar(path, &tar->members, &unwanted) == 0;
        return tar->opened;
    }

    void openPlain(TarFacts* tar) const {
        if (list(tar, tar->path)) return;
        if (tar->size == 0 || tar->size % kCipherBlock != 0) {
            add(eNotATar, *tar, tar->keyPrefix + "url", "The file is no tar.");
        } else {
            add(eEncryptedWithoutKey, *tar, tar->keyPrefix + "url",
                "The file is no tar and may be an encrypted one, but the spec names no key.");
        }
    }

    // Leaves the path of the plain tar in `*path`.
    void openEncrypted(TarFacts* tar, std::string* path) const {
        if (list(tar, tar->path)) {
            add(eKeyWithoutEncryption, *tar, "encr_key_offset",
                "The device decrypts every tar, and this one is plain.");
            return;
        }
        if (options.secrets.empty()) {
            add(eTarNotOpened, *tar, "encr_key_offset", "The tar is encrypted, and was not opened.");
            return;
        }
        FileKey key = {};
        std::string fault;
        *path = folder.path + "/" + tar->localName;
        const int64_t offset = static_cast<int64_t>(spec.keyOffset());
        if (readSecret(options.secrets, offset, &key, &fault) != 0 ||
            decryptFileTo(tar->path, *path, key, nullptr, &fault) != 0) {
            add(eDecryptionFails, *tar, "encr_key_offset", "The tar does not decrypt: " + fault + ".");
        } else if (!list(tar, *path)) {
            add(eDecryptionFails, *tar, "encr_key_offset", "What the key makes of the file is no tar.");
        }
    }

    void checkMembers(const TarFacts& tar) const {
        for (const TarMember& member : tar.members) {
            std::string key = tar.keyPrefix + "url";
            bool wanted = false;
            for (const WantedMember& candidate : tar.wanted) {
                if (candidate.name != member.name) continue;
                key = candidate.key;
                wanted = true;
            }
            FindingCode code = eMemberLink;
            std::string why = "The member \"" + member.name + "\" is a link.";
            if (!isLink(member)) {
                if (!climbs(member.name)) continue;
                code = eMemberClimbs;
                why =
                    "The member \"" + member.name + "\" leads out of the directory that it is extracted to.";
            }
            Finding& finding = add(code, tar, key, why);
            if (!wanted) finding.severity = eWarning;  // nothing extracts it
        }
    }

    void missing(const TarFacts& tar, const WantedMember& wanted, const std::string& why) const {
        add(wanted.isImage ? eMemberMissing : eScriptMissing, tar, wanted.key, why);
    }

    void checkWanted(const TarFacts& tar, const WantedMember& wanted, const std::string& plain) const {
        const TarMember* member = tar.member(wanted.name);
        const std::string name = "\"" + wanted.name + "\"";
        if (member == nullptr) {
            const bool dotted = tar.member("./" + wanted.name) != nullptr;
            return missing(tar, wanted,
                           dotted ? "The tar has it as \"./" + wanted.name + "\", which is another name."
                                  : "The tar has no member " + name + ".");
        }
        if (member->type == TarMember::eDirectory || member->type == TarMember::eOther)
            return missing(tar, wanted, "The member " + name + " is no file.");
        if (wanted.isImage && member->type == TarMember::eFile) checkImage(tar, wanted, *member, plain);
    }

    void checkImage(const TarFacts& tar, const WantedMember& wanted, const TarMember& member,
                    const std::string& plain) const {
        if (tar.volumeSize > 0 && tar.volumeSize < static_cast<double>(member.size))
            add(eVolumeTooSmall, tar, tar.keyPrefix + "imsize",
                "The image has " + std::to_string(member.size) + " bytes.");
        std::string digest;
        std::string fault;
        if (digestTarMember(plain, wanted.name, &digest, &fault) != 0)
            return missing(tar, wanted, "The member cannot be read: " + fault + ".");
        if (digest != tar.imageMd5)
            add(eDigestMismatch, tar, tar.keyPrefix + "image_md5",
                "The MD5 digest of the image is " + digest + ".");
    }
};

}  // namespace

int checkFiles(const SpecView& spec, const FileOptions& options, Tars* tars, Findings* findings,
               std::string* error) {
    const PlainFolder folder;
    if (folder.path.empty()) return fileError("a folder for decrypted tars", errno, error);
    const FileRule rule = {spec, options, folder, findings};
    for (TarFacts& tar : *tars) {
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
