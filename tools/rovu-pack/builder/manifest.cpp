#include "builder/manifest.h"

#include "checker/rules.h"
#include "host/files.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <set>

namespace {

// The table that the key is in: an image's, or the whole one. Cuts the key to its name there.
template <class Table>
Table& tableOf(Table& whole, std::string* key) {
    const size_t dot = key->find('.');
    if (dot == std::string::npos) return whole;
    const size_t entry = strtoul(key->c_str(), nullptr, 10);
    key->erase(0, dot + 1);
    return whole.items[entry - 1];
}

std::string inFolder(const std::string& folder, const std::string& name) {
    if (name.compare(0, 1, "/") == 0 || folder == ".") return name;
    return folder.back() == '/' ? folder + name : folder + "/" + name;
}

}  // namespace

const LuaValue* Manifest::find(const std::string& key) const {
    std::string name = key;
    const LuaValue& table = tableOf(source.table, &name);
    return findField(table, name);
}

const LuaValue& Manifest::settle(const std::string& key, const LuaValue& computed) {
    if (const LuaValue* given = find(key)) return *given;
    std::string name = key;
    std::vector<LuaField>& fields = tableOf(source.table, &name).fields;
    const auto isBehind = [&name](const LuaField& field) { return field.name > name; };
    return fields.insert(std::find_if(fields.begin(), fields.end(), isBehind), {name, computed})->value;
}

Fault Manifest::located(const std::string& key, const std::string& text) const {
    const FindingPlace place = source.at(key);
    std::string message = place.file + ":";
    if (place.line != 0) message += std::to_string(place.line) + ":";
    const bool isEntry = strtoul(key.c_str(), nullptr, 10) != 0;
    const size_t dot = isEntry ? key.find('.') : 0;
    if (isEntry) message += " entry " + key.substr(0, dot) + ":";
    const std::string name = !isEntry ? key : dot == std::string::npos ? "" : key.substr(dot + 1);
    if (!name.empty()) message += " \"" + name + "\":";
    return {EINVAL, message + " " + text};
}

std::string Manifest::localFileOf(const std::string& prefix, const std::string& member) const {
    for (const std::string& key : {prefix + "files", std::string("files")}) {
        const LuaValue* files = find(key);
        const LuaValue* file = files == nullptr ? nullptr : findField(*files, member);
        if (file != nullptr) return inFolder(folder, file->text);
    }
    return inFolder(folder, member);
}

LuaValue textValue(const std::string& text) {
    LuaValue value;
    value.kind = LuaValue::eString;
    value.text = text;
    return value;
}

LuaValue numberValue(double number) {
    LuaValue value;
    value.kind = LuaValue::eNumber;
    value.number = number;
    return value;
}

namespace {

constexpr const char* kNumbers[] = {"clone_overlay", "encr_key_offset", "script_dlsize", "dlsize", "imsize"};

// In the order in which they are told: the cause of others first.
constexpr FindingCode kNeverForced[] = {
    eNilValue,       eRepeatedKey,  eUnreadKey,  eBehindGap,       eDepNotTable,  eVersionNumber,
    eNumberTooLarge, eNegativeSize, eNameEmpty,  eNameQuote,       eNameNewline,  eNameHyphen,
    eNameCollides,   eMemberClimbs, eTwoOfAKind, eEvaluationLimit, eDeviceRefuses};

std::string kindFault(const std::string& key, const LuaValue& value) {
    const bool isNumber = key == "version" || std::find(std::begin(kNumbers), std::end(kNumbers),
                                                        key.substr(key.find('.') + 1)) != std::end(kNumbers);
    const bool isText = value.kind == LuaValue::eString;
    if (!isNumber) return isText ? "" : "a string in quotes is required";
    if (isText) return "a whole number without quotes is required";
    const bool isWhole = value.kind == LuaValue::eNumber && std::isfinite(value.number) &&
                         !(std::floor(value.number) < value.number);
    return isWhole ? "" : "a whole number is required";
}

Fault refuseKinds(const Manifest& manifest, const std::string& prefix,
                  const std::vector<std::string>& known) {
    for (const std::string& name : known) {
        const LuaValue* value = manifest.find(prefix + name);
        const std::string text = value == nullptr || name == "dep" ? "" : kindFault(prefix + name, *value);
        if (!text.empty()) return manifest.located(prefix + name, text);
    }
    const LuaValue* files = manifest.find(prefix + "files");
    if (files == nullptr) return {};
    bool good = files->kind == LuaValue::eTable && files->items.empty();
    for (const LuaField& file : files->fields)
        good = good && file.value.kind == LuaValue::eString && !file.value.text.empty();
    if (good) return {};
    return manifest.located(prefix + "files",
                            "pairs such as ['before.sh'] = '../common/before.sh' are required");
}

Fault refuseUnused(const Manifest& manifest, const std::string& key, const std::set<std::string>& members) {
    const LuaValue* files = manifest.find(key);
    if (files == nullptr) return {};
    for (const LuaField& file : files->fields) {
        if (members.count(file.name) == 0) return manifest.located(key, "nothing uses \"" + file.name + "\"");
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
    SpecFile* source = &manifest->source;
    LuaVariables given;
    if (Fault fault = parseVariables(variables, &given)) return fault;
    if (Fault fault = evaluateLua(path, text, &source->table, &given)) return fault;
    if (Fault fault = refuseUnread(path, given)) return fault;
    source->path = path;
    source->lines = findTableLines(text, &source->repeatedKey);
    manifest->folder = folderOf(path);
    if (source->table.kind != LuaValue::eTable) return {EINVAL, path + ": not a Lua table"};
    Findings findings = checkText(*source, {});
    findings.append(checkKeys(manifest->view()));
    if (Fault fault = refuseFound(*manifest, findings)) return fault;
    if (Fault fault = refuseKinds(*manifest, "", kSpecKeys)) return fault;
    for (size_t entry = 1; entry <= source->table.items.size(); ++entry) {
        const LuaValue::Kind kind = source->table.items[entry - 1].kind;
        const std::string key = std::to_string(entry);
        if (kind != LuaValue::eString && kind != LuaValue::eTable)
            return manifest->located(key, "neither a script's name nor an image's table");
        if (kind == LuaValue::eString) continue;
        if (Fault fault = refuseKinds(*manifest, key + ".", kImageKeys)) return fault;
    }
    return {};
}

Fault refuseFound(const Manifest& manifest, const Findings& findings) {
    for (const FindingCode code : kNeverForced) {
        for (const Finding& finding : findings.all) {
            const std::string& key = finding.place.key;
            const bool isFiles = code == eUnreadKey && key.substr(key.rfind('.') + 1) == "files";
            if (finding.code == code && !isFiles)
                return manifest.located(key, finding.why + " " + finding.advice);
        }
    }
    return {};
}

Fault refuseUnusedFiles(const Manifest& manifest) {
    const SpecView view = manifest.view();
    std::set<std::string> all;
    for (const ScriptView& script : view.scripts)
        all.insert(script.name);
    for (const ImageView& image : view.images) {
        const std::set<std::string> own = {image.text("image"), image.text("preinst"),
                                           image.text("postinst")};
        if (Fault fault = refuseUnused(manifest, image.key("files"), own)) return fault;
        all.insert(own.begin(), own.end());
    }
    return refuseUnused(manifest, "files", all);
}
