// The device puts a name between single quotes, and extracts it into its work directory beside its own files.

#include "builder/manifest.h"

#include "lua_util/field_readers.h"
#include "spec_view/spec_view.h"
#include "util/version.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <set>

namespace {

std::string inFolder(const std::string& folder, const std::string& name) {
    if (name.compare(0, 1, "/") == 0 || folder == ".") return name;
    return folder.back() == '/' ? folder + name : folder + "/" + name;
}

}  // namespace

Fault Manifest::located(size_t entry, const Complaint& complaint) const {
    if (!complaint) return {};
    const std::string& key = complaint.key;
    const std::string whole = entry == kWholeManifest ? "" : std::to_string(entry);
    auto line = lines.find(whole.empty() ? key : key.empty() ? whole : whole + "." + key);
    if (line == lines.end()) line = lines.find(whole);
    std::string message = file + ":";
    if (line != lines.end()) message += std::to_string(line->second) + ":";
    if (!whole.empty()) message += " entry " + whole + ":";
    if (!key.empty()) message += " \"" + key + "\":";
    return {EINVAL, message + " " + complaint.text};
}

std::string Manifest::localFileOf(const ManifestImage* image, const std::string& member) const {
    if (image != nullptr) {
        const auto own = image->files.find(member);
        if (own != image->files.end()) return inFolder(folder, own->second);
    }
    const auto common = files.find(member);
    return inFolder(folder, common == files.end() ? member : common->second);
}

namespace {

constexpr const char* kImageTars[] = {"img0", "img1"};

bool isDeviceFile(const std::string& name) {
    const auto isName = [&name](const char* own) { return name == own; };
    return std::any_of(std::begin(kDeviceFiles), std::end(kDeviceFiles), isName) ||
           std::any_of(std::begin(kImageTars), std::end(kImageTars), isName);
}

bool hasBadStep(const std::string& name) {
    const std::string path = "/" + name + "/";
    for (const char* step : {"//", "/./", "/../"}) {
        if (path.find(step) != std::string::npos) return true;
    }
    return false;
}

}  // namespace

std::string memberNameFault(const std::string& name) {
    if (name.empty()) return "is empty";
    if (name[0] == '-') return "begins with a hyphen, which tar interprets as an option";
    if (hasBadStep(name)) return "is not a plain path below the manifest's folder";
    for (const char c : name) {
        if (c == '\'') return "holds a single quote, which ends the quoting of a command";
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return "holds a control character";
    }
    return isDeviceFile(name) ? "is the name of a file of the device's own work directory" : "";
}

namespace {

bool isWord(const std::string& word, const char* list) {
    return findEnumToken(word.data(), word.size(), list, ',') >= 0;
}

bool isVersion(const std::string& text, PackedVersion* version) {
    return parseVersion(version, text.c_str()) == 0;
}

Complaint checkMember(const char* key, const std::string& member) {
    const std::string fault = memberNameFault(member);
    if (fault.empty()) return {};
    return {key, "the name \"" + member + "\" " + fault};
}

Complaint checkDep(const ManifestDep& dep) {
    const std::string kind = dep.kind.substr(dep.kind.compare(0, 1, "!") == 0 ? 1 : 0);
    if (!isWord(kind, "kernel,rootfs")) {
        return {"dep", "\"" + dep.kind + "\" is neither kernel nor rootfs, with or without a !"};
    }
    PackedVersion low = 0;
    PackedVersion high = 0;
    if (isVersion(dep.low, &low) && isVersion(dep.high, &high) && low <= high) return {};
    return {"dep", "\"" + dep.low + "\" to \"" + dep.high + "\" is not a range of versions"};
}

Complaint checkWords(const ManifestImage& image) {
    PackedVersion version = 0;
    if (!isWord(image.type, "kernel,rootfs")) return {"type", "kernel or rootfs is required"};
    if (!isWord(image.update, "optional,mandatory")) return {"update", "mandatory or optional is required"};
    if (!isVersion(image.version, &version)) return {"version", "up to four numbers with dots are required"};
    for (const ManifestDep& dep : image.deps) {
        if (Complaint complaint = checkDep(dep)) return complaint;
    }
    return {};
}

Complaint checkMembers(const ManifestImage& image) {
    if (Complaint complaint = checkMember("image", image.image)) return complaint;
    const std::pair<const char*, const std::string&> scripts[] = {{"preinst", image.preinst},
                                                                  {"postinst", image.postinst}};
    for (const auto& script : scripts) {
        if (script.second.empty()) continue;
        if (Complaint complaint = checkMember(script.first, script.second)) return complaint;
        if (script.second == image.image) return {script.first, "the image is no script"};
    }
    for (const auto& file : image.files) {
        if (file.first == image.image || file.first == image.preinst || file.first == image.postinst)
            continue;
        return {"files", "nothing uses \"" + file.first + "\""};
    }
    return {};
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

Complaint checkImage(const ManifestImage& image, std::set<std::string>* types) {
    if (Complaint complaint = checkWords(image)) return complaint;
    if (Complaint complaint = checkMembers(image)) return complaint;
    if (types->insert(image.type).second) return {};
    return {"type", "a second image of this kind, which the device refuses"};
}

}  // namespace

Fault checkManifest(const Manifest& manifest) {
    std::set<std::string> types;
    for (size_t entry = 1; entry <= manifest.steps.size(); ++entry) {
        const ManifestStep& step = manifest.steps[entry - 1];
        const Complaint complaint =
            step.image ? checkImage(*step.image, &types) : checkMember("", step.script);
        if (complaint) return manifest.located(entry, complaint);
    }
    const std::set<std::string> members = allMembers(manifest);
    for (const auto& file : manifest.files) {
        if (members.count(file.first) != 0) continue;
        return manifest.located(kWholeManifest, {"files", "nothing uses \"" + file.first + "\""});
    }
    return {};
}
