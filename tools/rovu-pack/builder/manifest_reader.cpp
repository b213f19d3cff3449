// The keys, and the requirements for each.

#include "builder/manifest_reader.h"

#include "builder/manifest.h"
#include "host/files.h"
#include "spec_view/lua_value.h"
#include "spec_view/spec_view.h"
#include "spec_view/words.h"
#include "update_spec/spec.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>

void FieldTaker::text(const char* key, size_t limit, std::string* value, bool required) {
    std::optional<std::string> found;
    given(key, limit, &found);
    if (complaint_) return;
    if (found) {
        *value = *found;
    } else if (required) {
        complaint_ = {key, "is missing"};
    }
}

void FieldTaker::number(const char* key, double* value, bool required) {
    if (complaint_) return;
    const LuaValue* field = findField(table_, key);
    if (field == nullptr) {
        if (required) complaint_ = {key, "is missing"};
        return;
    }
    const double number = field->number;
    if (field->kind == LuaValue::eString) {
        complaint_ = {key, "a whole number without quotes is required"};
    } else if (field->kind != LuaValue::eNumber || std::floor(number) < number || std::isnan(number)) {
        complaint_ = {key, "a whole number is required"};
    } else if (std::fabs(number) > INT32_MAX) {
        complaint_ = {key, "is beyond 2147483647, the largest number that a device reads"};
    } else {
        *value = number;
    }
}

void FieldTaker::given(const char* key, size_t limit, std::optional<std::string>* value) {
    if (complaint_) return;
    const LuaValue* field = findField(table_, key);
    if (field == nullptr) return;
    if (field->kind != LuaValue::eString) {
        complaint_ = {key, "a string in quotes is required"};
    } else if (field->text.size() > limit) {
        const std::string most = "has more than " + std::to_string(limit) + " bytes";
        complaint_ = {key, most};
    } else {
        *value = field->text;
    }
}

void FieldTaker::given(const char* key, std::optional<uint32_t>* value) {
    constexpr double kAbsent = -1;
    double number = kAbsent;
    this->number(key, &number, false);
    if (complaint_ || findField(table_, key) == nullptr) return;
    if (number < 0) {
        complaint_ = {key, "a size cannot be negative"};
        return;
    }
    *value = static_cast<uint32_t>(number);
}

void FieldTaker::files(const char* key, LocalFiles* value) {
    if (complaint_) return;
    const LuaValue* field = findField(table_, key);
    if (field == nullptr) return;
    bool good = field->kind == LuaValue::eTable && field->items.empty();
    for (const LuaField& file : field->fields) {
        good = good && file.value.kind == LuaValue::eString && !file.value.text.empty();
        (*value)[file.name] = file.value.text;
    }
    if (good) return;
    complaint_ = {key, "pairs such as ['before.sh'] = '../common/before.sh' are required"};
}

Complaint refuseUnknownKeys(const LuaValue& table, const std::vector<std::string>& known) {
    for (const LuaField& field : table.fields) {
        if (std::find(known.begin(), known.end(), field.name) != known.end()) continue;
        if (field.name.find_first_not_of("[0123456789]") == std::string::npos)
            return {field.name, "comes after a gap in the list, and would never be read"};
        const std::string nearest = nearestWord(field.name, known);
        const std::string hint = nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?";
        return {field.name, "nothing reads this key" + hint};
    }
    return {};
}

namespace {

constexpr double kFormatVersion = 1;
constexpr size_t kDepTextLimit = 31;  // bytes of each string of a dependency
constexpr size_t kDepSize = 3;        // strings

// The most bytes that a string of the device's record holds.
template <size_t size>
constexpr size_t limitOf(const char (&)[size]) {
    return size - 1;
}
const UpdateSpecVer1 kSpec = {};
const UpdateSpecVer1::Image kImage = {};

// What a manifest has beyond the keys of a spec.
std::vector<std::string> withFiles(std::vector<std::string> keys) {
    keys.emplace_back("files");
    return keys;
}

Complaint takeDep(const LuaValue& value, ManifestDep* dep) {
    if (value.kind != LuaValue::eTable || value.items.size() != kDepSize || !value.fields.empty())
        return {"dep", "each entry is { 'kernel' or 'rootfs', lowest version, highest version }"};
    std::string* const texts[kDepSize] = {&dep->kind, &dep->low, &dep->high};
    for (size_t i = 0; i < kDepSize; ++i) {
        const LuaValue& item = value.items[i];
        if (item.kind != LuaValue::eString || item.text.size() > kDepTextLimit)
            return {"dep", "kind and versions are strings in quotes (as a number, 3.10 is 3.1)"};
        *texts[i] = item.text;
    }
    return {};
}

Complaint takeDeps(const LuaValue& image, std::vector<ManifestDep>* deps) {
    const LuaValue* value = findField(image, "dep");
    if (value == nullptr) return {};
    if (value->kind != LuaValue::eTable || !value->fields.empty())
        return {"dep", "a list of dependencies is required"};
    for (const LuaValue& item : value->items) {
        deps->emplace_back();
        if (Complaint complaint = takeDep(item, &deps->back())) return complaint;
    }
    return {};
}

Complaint takeImage(const LuaValue& value, ManifestImage* image) {
    if (Complaint complaint = refuseUnknownKeys(value, withFiles(kImageKeys))) return complaint;
    FieldTaker take(value);
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
    if (take.complaint()) return take.complaint();
    return takeDeps(value, &image->deps);
}

Complaint takeStep(const LuaValue& value, ManifestStep* step) {
    if (value.kind == LuaValue::eString) {
        if (value.text.size() > limitOf(kImage.preinst)) return {"", "a script's name has at most 31 bytes"};
        step->script = value.text;
        return {};
    }
    if (value.kind != LuaValue::eTable) return {"", "neither a script's name nor an image's table"};
    step->image.emplace();
    return takeImage(value, &*step->image);
}

Complaint takeTop(const LuaValue& value, Manifest* manifest) {
    if (Complaint complaint = refuseUnknownKeys(value, withFiles(kSpecKeys))) return complaint;
    FieldTaker take(value);
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
    if (take.complaint()) return take.complaint();
    if (version != kFormatVersion) return {"version", "the only version is 1"};
    manifest->cloneOverlay = clone != 0;
    manifest->keyOffset = offset < 0 ? -1 : static_cast<int32_t>(offset);
    return {};
}

size_t indexOf(const std::string& number) {
    return strtoul(number.c_str(), nullptr, 10);
}

// A word without quotes is nil to Lua, and disappears.
Fault refuseVanished(const LuaValue& table, const Manifest& manifest, size_t entry) {
    const std::string prefix = entry == kWholeManifest ? "" : std::to_string(entry) + ".";
    for (const auto& line : manifest.lines) {
        if (line.first.compare(0, prefix.size(), prefix) != 0) continue;
        const std::string key = line.first.substr(prefix.size());
        if (key.empty() || key.find('.') != std::string::npos) continue;
        const bool isItem = key.find_first_not_of("0123456789") == std::string::npos;
        const bool isThere = isItem ? indexOf(key) <= table.items.size() || findField(table, "[" + key + "]")
                                    : findField(table, key) != nullptr;
        if (isThere) continue;
        const char* text = "its value is nil: a word without quotes?";
        if (isItem && entry == kWholeManifest) return manifest.located(indexOf(key), {"", text});
        return manifest.located(entry, {key, text});
    }
    return {};
}

Fault takeManifest(const LuaValue& value, Manifest* manifest) {
    if (value.kind != LuaValue::eTable) return {EINVAL, manifest->file + ": not a Lua table"};
    if (Fault fault = refuseVanished(value, *manifest, kWholeManifest)) return fault;
    if (Fault fault = manifest->located(kWholeManifest, takeTop(value, manifest))) return fault;
    for (size_t entry = 1; entry <= value.items.size(); ++entry) {
        const LuaValue& item = value.items[entry - 1];
        if (Fault fault = refuseVanished(item, *manifest, entry)) return fault;
        manifest->steps.emplace_back();
        if (Fault fault = manifest->located(entry, takeStep(item, &manifest->steps.back()))) return fault;
    }
    return {};
}

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

}  // namespace

Fault readManifest(const std::string& path, const std::vector<std::string>& variables, Manifest* manifest) {
    std::string text;
    if (Fault fault = readWholeFile(path, &text)) return fault;
    LuaValue value;
    LuaVariables given;
    if (Fault fault = parseVariables(variables, &given)) return fault;
    if (Fault fault = evaluateLua(path, text, &value, &given)) return fault;
    if (Fault fault = refuseUnread(path, given)) return fault;
    manifest->file = path;
    manifest->folder = folderOf(path);
    std::string repeated;
    manifest->lines = findTableLines(text, &repeated);
    if (!repeated.empty()) {
        return manifest->located(kWholeManifest, {repeated, "is given twice, and only the last would count"});
    }
    if (Fault fault = takeManifest(value, manifest)) return fault;
    return checkManifest(*manifest);
}
