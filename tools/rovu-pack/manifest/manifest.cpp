// From the evaluated table to the manifest's record: which keys there are, and what is asked of each.

#include "manifest.h"

#include "files.h"
#include "lua_value.h"
#include "manifest_fields.h"
#include "manifest_rules.h"
#include "spec.h"

#include <cerrno>
#include <cstdlib>

namespace {

constexpr double kFormatVersion = 1;
constexpr size_t kDepTextLimit = 31;  // bytes of each text of a dependency

const std::vector<std::string> kTopKeys = {"version",    "hardware",    "clone_overlay", "encr_key_offset",
                                           "script_url", "script_hash", "script_dlsize", "files"};
const std::vector<std::string> kImageKeys = {"type",     "update", "version",   "url",    "hash",
                                             "dlsize",   "image",  "image_md5", "imsize", "preinst",
                                             "postinst", "dep",    "files"};

// The most bytes that a text of the device's record holds.
template <size_t size>
constexpr size_t limitOf(const char (&)[size]) {
    return size - 1;
}
const UpdateSpecVer1 kSpec = {};
const UpdateSpecVer1::Image kImage = {};

int takeDep(const ManifestTable& image, const LuaValue& value, ManifestDep* dep, std::string* error) {
    if (value.kind != LuaValue::eTable || value.items.size() != 3 || !value.fields.empty()) {
        return manifestFault(image.manifest, image.entry, "dep",
                             "each entry is { 'kernel' or 'rootfs', lowest version, highest version }",
                             error);
    }
    std::string* const texts[] = {&dep->kind, &dep->low, &dep->high};
    for (size_t i = 0; i < 3; ++i) {
        const LuaValue& item = value.items[i];
        if (item.kind != LuaValue::eText || item.text.size() > kDepTextLimit) {
            return manifestFault(image.manifest, image.entry, "dep",
                                 "kind and versions are texts in quotes (as a number, 3.10 is 3.1)", error);
        }
        *texts[i] = item.text;
    }
    return 0;
}

int takeDeps(const ManifestTable& image, std::vector<ManifestDep>* deps, std::string* error) {
    const LuaValue* value = findField(image.value, "dep");
    if (value == nullptr) return 0;
    if (value->kind != LuaValue::eTable || !value->fields.empty()) {
        return manifestFault(image.manifest, image.entry, "dep", "a list of dependencies is wanted", error);
    }
    for (const LuaValue& item : value->items) {
        deps->emplace_back();
        if (int rc = takeDep(image, item, &deps->back(), error); rc != 0) return rc;
    }
    return 0;
}

int takeImage(const ManifestTable& table, ManifestImage* image, std::string* error) {
    if (int rc = refuseUnknownKeys(table, kImageKeys, error); rc != 0) return rc;
    FieldTaker take = {table, error};
    take.text("type", limitOf(kImage.preinst), &image->type);
    take.text("update", limitOf(kImage.preinst), &image->update);
    take.text("version", limitOf(kImage.preinst), &image->version);
    take.text("image", limitOf(kImage.image), &image->image);
    take.text("preinst", limitOf(kImage.preinst), &image->preinst, false);
    take.text("postinst", limitOf(kImage.postinst), &image->postinst, false);
    take.given("url", limitOf(kImage.url), &image->url);
    take.given("hash", limitOf(kImage.hash), &image->hash);
    take.given("image_md5", limitOf(kImage.image_md5), &image->imageMd5);
    take.given("dlsize", &image->dlsize);
    take.given("imsize", &image->imsize);
    take.files("files", &image->files);
    if (take.result != 0) return take.result;
    return takeDeps(table, &image->deps, error);
}

int takeStep(const Manifest& manifest, const LuaValue& value, size_t entry, ManifestStep* step,
             std::string* error) {
    if (value.kind == LuaValue::eText) {
        if (value.text.size() > limitOf(kImage.preinst))
            return manifestFault(manifest, entry, "", "a script's name has at most 31 bytes", error);
        step->script = value.text;
        return 0;
    }
    if (value.kind != LuaValue::eTable)
        return manifestFault(manifest, entry, "", "neither a script's name nor an image's table", error);
    step->image.emplace();
    return takeImage({manifest, entry, value}, &*step->image, error);
}

int takeTop(const LuaValue& value, Manifest* manifest, std::string* error) {
    const ManifestTable table = {*manifest, kWholeManifest, value};
    if (int rc = refuseUnknownKeys(table, kTopKeys, error); rc != 0) return rc;
    FieldTaker take = {table, error};
    double version = 0;
    double clone = 0;
    double offset = -1;
    take.number("version", &version, true);
    take.text("hardware", limitOf(kSpec.hardware), &manifest->hardware);
    take.number("clone_overlay", &clone, false);
    take.number("encr_key_offset", &offset, false);
    take.given("script_url", limitOf(kSpec.script_url), &manifest->scriptUrl);
    take.given("script_hash", limitOf(kSpec.script_hash), &manifest->scriptHash);
    take.given("script_dlsize", &manifest->scriptDlsize);
    take.files("files", &manifest->files);
    if (take.result != 0) return take.result;
    if (version != kFormatVersion)
        return manifestFault(*manifest, kWholeManifest, "version", "the only version is 1", error);
    manifest->cloneOverlay = clone != 0;
    manifest->keyOffset = offset < 0 ? -1 : static_cast<int32_t>(offset);
    return 0;
}

size_t indexOf(const std::string& digits) {
    return strtoul(digits.c_str(), nullptr, 10);
}

// A word without quotes is nil to Lua, and is gone without a trace.
int refuseVanished(const LuaValue& table, const std::string& prefix, const Manifest& manifest, size_t entry,
                   std::string* error) {
    for (const auto& line : manifest.lines) {
        if (line.first.compare(0, prefix.size(), prefix) != 0) continue;
        const std::string key = line.first.substr(prefix.size());
        if (key.empty() || key.find('.') != std::string::npos) continue;
        const bool isItem = key.find_first_not_of("0123456789") == std::string::npos;
        const bool there = isItem ? indexOf(key) <= table.items.size() || findField(table, "[" + key + "]")
                                  : findField(table, key) != nullptr;
        if (there) continue;
        const char* text = "its value is nil: a word without quotes?";
        if (isItem && entry == kWholeManifest) return manifestFault(manifest, indexOf(key), "", text, error);
        return manifestFault(manifest, entry, key, text, error);
    }
    return 0;
}

int takeManifest(const LuaValue& value, Manifest* manifest, std::string* error) {
    if (value.kind != LuaValue::eTable) {
        *error = manifest->file + ": not a Lua table";
        return EINVAL;
    }
    if (int rc = refuseVanished(value, "", *manifest, kWholeManifest, error); rc != 0) return rc;
    if (int rc = takeTop(value, manifest, error); rc != 0) return rc;
    for (size_t i = 0; i < value.items.size(); ++i) {
        const std::string prefix = std::to_string(i + 1) + ".";
        if (int rc = refuseVanished(value.items[i], prefix, *manifest, i + 1, error); rc != 0) return rc;
        manifest->steps.emplace_back();
        if (int rc = takeStep(*manifest, value.items[i], i + 1, &manifest->steps.back(), error); rc != 0)
            return rc;
    }
    return 0;
}

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

std::string inFolder(const std::string& folder, const std::string& name) {
    if (name.compare(0, 1, "/") == 0 || folder == ".") return name;
    return folder.back() == '/' ? folder + name : folder + "/" + name;
}

}  // namespace

int readManifest(const std::string& path, Manifest* manifest, std::string* error) {
    std::string text;
    if (int rc = readWholeFile(path, &text, error); rc != 0) return rc;
    LuaValue value;
    if (int rc = evaluateLua(path, text, &value, error); rc != 0) return rc;
    manifest->file = path;
    manifest->folder = folderOf(path);
    std::string repeated;
    manifest->lines = findTableLines(text, &repeated);
    if (!repeated.empty()) {
        return manifestFault(*manifest, kWholeManifest, repeated,
                             "is there twice, and only the last would count", error);
    }
    if (int rc = takeManifest(value, manifest, error); rc != 0) return rc;
    return checkManifest(*manifest, error);
}

int manifestFault(const Manifest& manifest, size_t entry, const std::string& key, const std::string& text,
                  std::string* error) {
    const std::string whole = entry == kWholeManifest ? "" : std::to_string(entry);
    auto line = manifest.lines.find(whole.empty() ? key : key.empty() ? whole : whole + "." + key);
    if (line == manifest.lines.end()) line = manifest.lines.find(whole);
    *error = manifest.file + ":";
    if (line != manifest.lines.end()) *error += std::to_string(line->second) + ":";
    if (!whole.empty()) *error += " entry " + whole + ":";
    if (!key.empty()) *error += " \"" + key + "\":";
    *error += " " + text;
    return EINVAL;
}

std::string localFileOf(const Manifest& manifest, const ManifestImage* image, const std::string& member) {
    if (image != nullptr) {
        const auto own = image->files.find(member);
        if (own != image->files.end()) return inFolder(manifest.folder, own->second);
    }
    const auto common = manifest.files.find(member);
    return inFolder(manifest.folder, common == manifest.files.end() ? member : common->second);
}
