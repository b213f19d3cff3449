// One tar after the other: the file as served, then decrypted, then its members.

#include "checker/served_files.h"

#include "archive/output_file.h"
#include "checker/rules.h"
#include "checker/tar_members.h"
#include "content/image_format.h"
#include "host/digests.h"
#include "host/files.h"
#include "host/leftovers.h"
#include "host/progress_bar.h"
#include "signing/key_files.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kCipherBlock = 16;

// The file of `folder` that is served as `url`: the longest suffix of the URL's path that exists, so that two
// files of one name may be in different folders. A missing file has the last component of the URL.
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

// By its first bytes, whole or not.
bool beginsAsTar(const std::string& path) {
    std::error_code ignored;
    std::vector<TarMember> members;
    std::string compression;
    if (!std::filesystem::is_regular_file(path, ignored) || std::filesystem::file_size(path, ignored) == 0)
        return false;
    return !listTar(path, &members, &compression) || !members.empty();
}

// Keeps those bytes of a tar that the rules need, for the members that the spec names.
class ContentKeeper {
public:
    ContentKeeper(const TarFacts& tar, TarContent* content) : tar_(tar), content_(content) {}

    void keep(const TarMember& member, uint64_t offset, const char* bytes, size_t size) {
        bool isImage = false;
        bool isScript = false;
        for (const RequiredMember& required : tar_.required) {
            if (required.name != member.name) continue;
            (required.isImage ? isImage : isScript) = true;
        }
        if (isImage) keepOfImage(offset, bytes, size);
        if (isScript) keepOfScript(member.name, offset, bytes, size);
    }

private:
    void keepOfImage(uint64_t offset, const char* bytes, size_t size) {
        if (offset == 0) md5_ = Digest(EVP_md5());
        md5_.add(bytes, size);
        content_->image.add(offset, bytes, size);
        if (size == 0) content_->imageMd5 = md5_.hex();
    }

    void keepOfScript(const std::string& name, uint64_t offset, const char* bytes, size_t size) {
        std::string& script = content_->scripts[name];
        if (offset == 0) script.clear();
        script.append(bytes, std::min(size, kMostOfScript - script.size()));
    }

    const TarFacts& tar_;
    TarContent* content_;
    Digest md5_{EVP_md5()};
};

struct FileRule {
    const SpecView& spec;
    const FileOptions& options;
    ProgressBar* bar;
    Findings* findings;
    FileKey key = {};

    // The place is always one of the spec; the sentence names the file.
    Finding& add(FindingCode code, const std::string& at, const std::string& why) const {
        return findings->add(code, spec.at(at), why);
    }

    // Once for all tars.
    Fault loadKey() {
        if (options.secrets.empty() || spec.keyOffset() < 0) return {};
        Fault fault = readSecret(options.secrets, static_cast<int64_t>(spec.keyOffset()), &key);
        if (!fault) checkSecret();
        if (fault.code() != EINVAL) return fault;
        add(eDecryptionFails, "encr_key_offset", "The key file is too short: " + fault.message() + ".")
            .advice = "Fix the offset, or give the devices' key file.";
        return {};
    }

    // A key that anybody can guess, or a file for another purpose.
    void checkSecret() {
        std::string bytes;
        if (readWholeFile(options.secrets, &bytes)) return;
        const std::string kind = keyKindInWords(bytes);
        const bool isUniform = std::all_of(key.key, key.key + sizeof key.key,
                                           [this](unsigned char c) { return c == key.key[0]; });
        const bool isDump = std::all_of(key.key, key.key + sizeof key.key,
                                        [](unsigned char c) { return isxdigit(c) != 0 || isspace(c) != 0; });
        if (!kind.empty()) {
            add(eSecretsOdd, "encr_key_offset", options.secrets + " is not a key file: it is " + kind + ".")
                .severity = eError;
            key.present = false;  // what it makes of the tars would only follow
        } else if (isUniform || isDump) {
            add(eSecretsOdd, "encr_key_offset",
                "The key that " + options.secrets + " has there is " +
                    (isUniform ? "one byte again and again."
                               : "a dump of hex digits, not the bytes themselves."));
        }
    }

    // Each tar is read once.
    void expectWork(const Tars& tars) const {
        uint64_t bytes = 0;
        for (const TarFacts& tar : tars) {
            std::error_code missing;
            const uint64_t size = std::filesystem::file_size(tar.path, missing);
            if (!missing) bytes += size;
        }
        bar->expect(bytes);
    }

    Fault check(const Tars& tars, TarFacts* tar) const {
        bar->begin(std::filesystem::path(tar->path).filename());
        TarContent read;
        const TarContent* content = builtOf(*tar);
        if (content != nullptr) {
            takeBuilt(tar, *content);
        } else {
            content = &read;
            readTar(tar, &read);
        }
        if (tar->opened) findings->append(checkMembers(spec, tars, *content, tar));
        return interruption();
    }

    // By the file's name alone: a build puts all of them into one folder.
    const TarContent* builtOf(const TarFacts& tar) const {
        if (options.built == nullptr) return nullptr;
        const auto found = options.built->find(std::filesystem::path(tar.path).filename());
        return found == options.built->end() ? nullptr : &found->second;
    }

    void reportMissing(const TarFacts& tar, const Fault& fault) const {
        add(eTarMissing, tar.keyPrefix + "url", "The tar is not among the files: " + fault.message() + ".");
    }

    // The spec's digest is that of the file.
    void takeBuilt(TarFacts* tar, const TarContent& content) const {
        std::error_code fault;
        const uint64_t size = std::filesystem::file_size(tar->path, fault);
        if (fault) return reportMissing(*tar, fileFault(tar->path, fault.value()));
        compareFile(tar, size, tar->hash);
        tar->members = content.members;
        tar->opened = true;
    }

    // The file as it travels.
    void compareFile(TarFacts* tar, uint64_t size, const std::string& sha256) const {
        tar->found = true;
        tar->size = size;
        const Comparison comparison = {spec, findings};
        comparison.digest(tar->keyPrefix + "hash", tar->path, sha256, tar->hash);
        comparison.size(eLimitTooSmall, tar->keyPrefix + "dlsize", {tar->path, size}, "limit", tar->limit);
        if (tar->hash.empty() || tar->hash == sha256) checkLooseLimit(*tar);  // else it is another file
        checkMode(*tar);
    }

    // A limit of twice the file is hardly a reserve, but most often the size of another file.
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
        add(eTarUnreadable, tar.keyPrefix + "url", tar.path + " can be read only by its owner or group.");
    }

    // One pass over the file for all its rules.
    void readTar(TarFacts* tar, TarContent* content) const {
        if (tar->path.empty()) return reportMissing(*tar, {ENOENT, "its URL names no file"});
        const bool isPlain = spec.keyOffset() < 0 || beginsAsTar(tar->path);
        ContentKeeper keeper(*tar, content);
        const MemberSink keep = [&keeper](const TarMember& member, uint64_t offset, const char* bytes,
                                          size_t size) { keeper.keep(member, offset, bytes, size); };
        TarPass pass;
        if (Fault fault = passOverTar(tar->path, isPlain ? FileKey() : key, keep, bar->progress(), &pass))
            return reportMissing(*tar, fault);
        compareFile(tar, pass.size, pass.sha256);
        if (isPlain) {
            judgePlain(tar, pass);
        } else {
            judgeEncrypted(tar, pass);
        }
    }

    void judgePlain(TarFacts* tar, const TarPass& pass) const {
        if (spec.keyOffset() >= 0)
            add(eKeyWithoutEncryption, "encr_key_offset",
                "The device decrypts every tar, and " + tar->path + " is plain.");
        if (open(tar, pass)) return;
        const std::string kind = kindOf(*tar);
        if (!kind.empty()) {
            add(eNotATar, tar->keyPrefix + "url", tar->path + " is no tar, but " + kind + ".");
        } else if (pass.size == 0 || pass.size % kCipherBlock != 0) {
            add(eNotATar, tar->keyPrefix + "url", tar->path + " is no tar.");
        } else {
            add(eEncryptedWithoutKey, tar->keyPrefix + "url",
                tar->path + " is no tar and may be an encrypted one, but the spec names no key.");
        }
    }

    // What the file is by its first bytes; empty: not known, as of an encrypted one.
    static std::string kindOf(const TarFacts& tar) {
        std::ifstream file(tar.path, std::ios::binary);
        std::string head(kFormatHead, '\0');
        file.read(head.data(), static_cast<std::streamsize>(head.size()));
        head.resize(static_cast<size_t>(file.gcount()));
        return findFormat(head).name;
    }

    void judgeEncrypted(TarFacts* tar, const TarPass& pass) const {
        if (const std::string kind = kindOf(*tar); !kind.empty()) {
            add(eNotATar, tar->keyPrefix + "url",
                tar->path + " is neither a tar nor encrypted, but " + kind + ".");
            return;
        }
        if (options.secrets.empty())
            add(eTarNotOpened, "encr_key_offset", tar->path + " is encrypted, and was not opened.");
        if (!key.present) return;
        if (pass.cipherFault) {
            add(eDecryptionFails, "encr_key_offset",
                "A tar does not decrypt: " + pass.cipherFault.message() + ".");
        } else if (!open(tar, pass)) {
            add(eDecryptionFails, "encr_key_offset", "What the key makes of " + tar->path + " is no tar.");
        }
    }

    // Whether it is a tar; one that is damaged is reported, and stays closed.
    bool open(TarFacts* tar, const TarPass& pass) const {
        if (pass.size == 0 || (pass.tarFault && pass.members.empty())) return false;
        if (pass.tarFault) {
            add(eNotATar, tar->keyPrefix + "url",
                tar->path + " is damaged, and most likely truncated: " + pass.tarFault.message() + ".")
                .advice = "Copy the file again, and compare its size with the original's.";
            return true;
        }
        tar->members = pass.members;
        tar->opened = true;
        if (!pass.compression.empty())
            add(eCompressedTar, tar->keyPrefix + "url",
                tar->path + " is compressed by " + pass.compression + ", which not every tar detects.");
        return true;
    }
};

// One wrong option makes a finding for each tar. \return whether there were any; they are removed.
bool isOneFault(FindingCode code, size_t tars, Findings* findings) {
    const auto isIt = [code](const Finding& finding) { return finding.code == code; };
    std::vector<Finding>& all = findings->all;
    if (tars < 2 || static_cast<size_t>(std::count_if(all.begin(), all.end(), isIt)) != tars) return false;
    all.erase(std::remove_if(all.begin(), all.end(), isIt), all.end());
    return true;
}

void joinFindings(const SpecView& spec, const FileOptions& options, size_t tars, Findings* findings) {
    if (isOneFault(eTarMissing, tars, findings))
        findings
            ->add(eTarMissing, spec.at(""),
                  "None of the " + std::to_string(tars) + " tars of the spec is in " + options.folder + ".")
            .advice = "Give the folder that is served with --files.";
    if (isOneFault(eDecryptionFails, tars, findings))
        findings->add(eDecryptionFails, spec.at("encr_key_offset"),
                      "No tar decrypts with the key that " + options.secrets + " has there.");
}

// Tars of other updates, most often of the previous one. Files with another suffix may be for people.
void reportUnnamed(const SpecView& spec, const Tars& tars, Findings* findings) {
    std::set<fs::path> named;
    std::set<fs::path> folders;
    for (const TarFacts& tar : tars) {
        const fs::path path = tar.path;
        if (!tar.found || path.extension().empty()) continue;
        named.insert(path.filename());
        folders.insert(path.parent_path());
    }
    for (const fs::path& folder : folders) {
        std::error_code fault;
        for (fs::directory_iterator at(folder, fault); !fault && at != fs::directory_iterator();
             at.increment(fault)) {
            const fs::path name = at->path().filename();
            if (named.count(name) != 0 || name.extension() != named.begin()->extension()) continue;
            findings->add(eFileUnnamed, spec.at(""), at->path().string() + " is named nowhere in the spec.");
        }
    }
}

bool isClosed(const fs::path& path, fs::perms right) {
    std::error_code fault;
    const fs::perms mode = fs::status(path, fault).permissions();
    return !fault && (mode & right) == fs::perms::none;
}

// The spec too is served, if it is among the files.
void reportClosed(const SpecView& spec, const FileOptions& options, Findings* findings) {
    std::error_code fault;
    const fs::path path = spec.file.path;
    const bool isServed =
        fs::equivalent(path.parent_path().empty() ? "." : path.parent_path(), options.folder, fault);
    if (options.built != nullptr) return;
    if (isServed && !fault && isClosed(path, fs::perms::others_read))
        findings->add(eTarUnreadable, spec.at(""),
                      path.string() + " can be read only by its owner or group.");
    if (isClosed(options.folder, fs::perms::others_exec))
        findings
            ->add(eTarUnreadable, spec.at(""), options.folder + " can be entered only by its owner or group.")
            .advice = "Allow the web server to enter the folder, as chmod a+x does.";
}

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
    if (options.built == nullptr) joinFindings(spec, options, files->tars.size(), &files->findings);
    reportClosed(spec, options, &files->findings);
    if (options.built == nullptr) reportUnnamed(spec, files->tars, &files->findings);
    return {};
}
