// Faults that can be told from the manifest alone, each where its author can find it. The device's own reader
// has the last word, but knows no lines.

#include "manifest_rules.h"

#include "lua_util/field_readers.h"
#include "member_names.h"
#include "util/version.h"

#include <cerrno>
#include <set>

namespace {

bool isWord(const std::string& word, const char* list) {
    return findEnumToken(word.data(), word.size(), list, ',') >= 0;
}

bool isVersion(const std::string& text, PackedVersion* version) {
    return parseVersion(version, text.c_str()) == 0;
}

int checkMember(const Manifest& manifest, size_t entry, const char* key, const std::string& member,
                std::string* error) {
    const std::string fault = memberNameFault(member);
    if (fault.empty()) return 0;
    return manifestFault(manifest, entry, key, "the name \"" + member + "\" " + fault, error);
}

int checkDep(const Manifest& manifest, size_t entry, const ManifestDep& dep, std::string* error) {
    const std::string kind = dep.kind.substr(dep.kind.compare(0, 1, "!") == 0 ? 1 : 0);
    if (!isWord(kind, "kernel,rootfs")) {
        return manifestFault(manifest, entry, "dep",
                             "\"" + dep.kind + "\" is neither kernel nor rootfs, with or without a !", error);
    }
    PackedVersion low = 0;
    PackedVersion high = 0;
    if (isVersion(dep.low, &low) && isVersion(dep.high, &high) && low <= high) return 0;
    return manifestFault(manifest, entry, "dep",
                         "\"" + dep.low + "\" to \"" + dep.high + "\" is not a range of versions", error);
}

int checkWords(const Manifest& manifest, size_t entry, const ManifestImage& image, std::string* error) {
    PackedVersion version = 0;
    if (!isWord(image.type, "kernel,rootfs"))
        return manifestFault(manifest, entry, "type", "kernel or rootfs is wanted", error);
    if (!isWord(image.update, "optional,mandatory"))
        return manifestFault(manifest, entry, "update", "mandatory or optional is wanted", error);
    if (!isVersion(image.version, &version))
        return manifestFault(manifest, entry, "version", "up to four numbers with dots are wanted", error);
    for (const ManifestDep& dep : image.deps) {
        if (int rc = checkDep(manifest, entry, dep, error); rc != 0) return rc;
    }
    return 0;
}

int checkMembers(const Manifest& manifest, size_t entry, const ManifestImage& image, std::string* error) {
    if (int rc = checkMember(manifest, entry, "image", image.image, error); rc != 0) return rc;
    const std::pair<const char*, const std::string&> scripts[] = {{"preinst", image.preinst},
                                                                  {"postinst", image.postinst}};
    for (const auto& script : scripts) {
        if (script.second.empty()) continue;
        if (int rc = checkMember(manifest, entry, script.first, script.second, error); rc != 0) return rc;
        if (script.second == image.image)
            return manifestFault(manifest, entry, script.first, "the image is no script", error);
    }
    for (const auto& file : image.files) {
        if (file.first == image.image || file.first == image.preinst || file.first == image.postinst)
            continue;
        return manifestFault(manifest, entry, "files", "nothing uses \"" + file.first + "\"", error);
    }
    return 0;
}

// The members of all tars, to which a file of the whole manifest can belong.
std::set<std::string> allMembers(const Manifest& manifest) {
    std::set<std::string> members;
    for (const ManifestStep& step : manifest.steps) {
        members.insert(step.script);
        if (step.image) members.insert({step.image->image, step.image->preinst, step.image->postinst});
    }
    return members;
}

int checkImage(const Manifest& manifest, size_t entry, std::set<std::string>* types, std::string* error) {
    const ManifestImage& image = *manifest.steps[entry - 1].image;
    if (int rc = checkWords(manifest, entry, image, error); rc != 0) return rc;
    if (int rc = checkMembers(manifest, entry, image, error); rc != 0) return rc;
    if (types->insert(image.type).second) return 0;
    return manifestFault(manifest, entry, "type", "a second image of this kind, which the device refuses",
                         error);
}

}  // namespace

int checkManifest(const Manifest& manifest, std::string* error) {
    std::set<std::string> types;
    for (size_t entry = 1; entry <= manifest.steps.size(); ++entry) {
        const ManifestStep& step = manifest.steps[entry - 1];
        const int rc = step.image ? checkImage(manifest, entry, &types, error)
                                  : checkMember(manifest, entry, "", step.script, error);
        if (rc != 0) return rc;
    }
    const std::set<std::string> members = allMembers(manifest);
    for (const auto& file : manifest.files) {
        if (members.count(file.first) != 0) continue;
        return manifestFault(manifest, kWholeManifest, "files", "nothing uses \"" + file.first + "\"", error);
    }
    return 0;
}
