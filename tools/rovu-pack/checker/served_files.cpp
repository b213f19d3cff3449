// One tar after the other: the file as it travels, then its plain form, then its members.

#include "served_files.h"

#include "comparison.h"
#include "digests.h"
#include "encryption.h"
#include "files.h"
#include "interruption.h"
#include "progress_bar.h"
#include "tar_members.h"
#include "temporary_file.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>

namespace {

constexpr uint64_t kCipherBlock = 16;

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

    Fault check(const Tars& tars, TarFacts* tar) const {
        bar->begin(std::filesystem::path(tar->path).filename());
        if (!find(tar)) return interruption();
        MemberSource source = {tar->path, builtOf(*tar), bar->progress()};
        TemporaryFile decrypted;
        if (source.built != nullptr) {
            tar->members = source.built->members;
            tar->opened = true;
        } else if (spec.keyOffset() < 0) {
            openPlain(tar);
        } else if (Fault fault = openEncrypted(tar, &decrypted, &source.path)) {
            return fault;
        }
        if (tar->opened) findings->append(checkMembers(spec, tars, source, tar));
        return interruption();
    }

    // By the file's name alone: a build puts all of them into one folder.
    const BuiltTar* builtOf(const TarFacts& tar) const {
        if (options.built == nullptr) return nullptr;
        const auto found = options.built->find(std::filesystem::path(tar.path).filename());
        return found == options.built->end() ? nullptr : &found->second;
    }

    Fault measure(const TarFacts& tar, uint64_t* size, std::string* sha256) const {
        if (tar.path.empty()) return {ENOENT, "its URL names no file"};
        if (options.built == nullptr) return digestFile(tar.path, bar->progress(), size, sha256);
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
        const Comparison comparison = {spec, findings};
        comparison.digest(tar->keyPrefix + "hash", tar->path, sha256, tar->hash);
        comparison.size(eLimitTooSmall, tar->keyPrefix + "dlsize", {tar->path, tar->size}, "limit",
                        tar->limit);
        checkLooseLimit(*tar);
        checkMode(*tar);
        return true;
    }

    // Twice the file and more is no reserve, but most often the number of another file.
    void checkLooseLimit(const TarFacts& tar) const {
        constexpr double kReserve = 65536;
        if (tar.limit <= 2 * static_cast<double>(tar.size) + kReserve) return;
        add(eLimitLoose, tar.keyPrefix + "dlsize",
            tar.path + " has " + std::to_string(tar.size) + " bytes, and the limit is " +
                std::to_string(static_cast<uint64_t>(tar.limit)) + ".");
    }

    // A build's files keep the mask of its user.
    void checkMode(const TarFacts& tar) const {
        std::error_code fault;
        const std::filesystem::perms mode = std::filesystem::status(tar.path, fault).permissions();
        if (fault || (mode & std::filesystem::perms::others_read) != std::filesystem::perms::none) return;
        add(eTarUnreadable, tar.keyPrefix + "url", tar.path + " can be read by its owner or group alone.");
    }

    // Leaves in `*damage` what is wrong with a file that begins as a tar; nothing if it does not.
    bool list(TarFacts* tar, const std::string& path, std::string* damage) const {
        std::string compression;
        const Fault fault = tar->size > 0 ? listTar(path, &tar->members, &compression) : Fault();
        tar->opened = tar->size > 0 && !fault;
        if (fault && !tar->members.empty()) {
            *damage = fault.message().substr(path.size() + 2);  // the path may be that of a temporary file
            tar->members.clear();
        }
        if (tar->opened && !compression.empty())
            add(eCompressedTar, tar->keyPrefix + "url",
                tar->path + " is compressed by " + compression + ", which not every tar detects.");
        return tar->opened;
    }

    void reportDamage(const TarFacts& tar, const std::string& damage) const {
        add(eNotATar, tar.keyPrefix + "url",
            tar.path + " is damaged, and most likely not whole: " + damage + ".")
            .advice = "Copy the file again, and compare its size with the original's.";
    }

    void openPlain(TarFacts* tar) const {
        std::string damage;
        if (list(tar, tar->path, &damage)) return;
        if (!damage.empty()) return reportDamage(*tar, damage);
        if (tar->size == 0 || tar->size % kCipherBlock != 0) {
            add(eNotATar, tar->keyPrefix + "url", tar->path + " is no tar.");
        } else {
            add(eEncryptedWithoutKey, tar->keyPrefix + "url",
                tar->path + " is no tar and may be an encrypted one, but the spec names no key.");
        }
    }

    // Leaves the path of the plain tar in `*path`.
    Fault openEncrypted(TarFacts* tar, TemporaryFile* decrypted, std::string* path) const {
        std::string damage;
        if (list(tar, tar->path, &damage) || !damage.empty()) {
            add(eKeyWithoutEncryption, "encr_key_offset",
                "The device decrypts every tar, and " + tar->path + " is plain.");
            if (!damage.empty()) reportDamage(*tar, damage);
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
        if (list(tar, *path, &damage)) return {};
        if (damage.empty())
            add(eDecryptionFails, "encr_key_offset", "What the key makes of " + tar->path + " is no tar.");
        else
            reportDamage(*tar, damage);
        return {};
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
        if (Fault fault = rule.check(files->tars, &tar)) return fault;
    }
    return {};
}
