// Values as the device's readers convert them: numbers to strings, strings to numbers, fractions truncated.

#include "spec_view/spec_view.h"

#include "host/files.h"
#include "update_spec/spec_signature.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

constexpr size_t kMarkerSize = 2;
constexpr char kWhitespace[] = " \t\r\n";

void splitAtMarker(SpecFile* spec) {
    const char* bytes = spec->bytes.data();
    const char* marker = findSignatureMarker(bytes, spec->bytes.size());
    spec->hasMarker = marker != nullptr;
    const size_t length = marker == nullptr ? spec->bytes.size() : static_cast<size_t>(marker - bytes);
    spec->text = spec->bytes.substr(0, length);
    if (marker != nullptr) spec->signature = spec->bytes.substr(length + kMarkerSize);
}

}  // namespace

bool SpecFile::awaitsSignature() const {
    return hasMarker && signature.find_first_not_of(kWhitespace) == std::string::npos;
}

FindingPlace SpecFile::at(const std::string& key) const {
    FindingPlace place = {path, key, 0};
    for (std::string around = key; !around.empty();) {
        const auto found = lines.find(around);
        if (found != lines.end()) {
            place.line = found->second;
            break;
        }
        const size_t dot = around.rfind('.');
        around.resize(dot == std::string::npos ? 0 : dot);
    }
    return place;
}

FindingPlace SpecFile::atByte(size_t position) const {
    const auto end = bytes.begin() + static_cast<long>(position);
    return {path, "", 1 + static_cast<int>(std::count(bytes.begin(), end, '\n'))};
}

Fault loadSpecFile(const std::string& path, SpecFile* spec) {
    std::string bytes;
    if (Fault fault = readWholeFile(path, &bytes)) return fault;
    if (bytes.size() > UINT32_MAX / 2) return fileFault(path, EFBIG);
    *spec = specFileOf(path, std::move(bytes));
    return {};
}

SpecFile specFileOf(const std::string& path, std::string bytes) {
    SpecFile spec;
    spec.path = path;
    spec.bytes = std::move(bytes);
    splitAtMarker(&spec);
    spec.lines = findTableLines(spec.text, &spec.repeatedKey);
    return spec;
}

void evaluateTable(SpecFile* spec) {
    spec->evaluation = evaluateLua(spec->path, spec->text, &spec->table);
    spec->hasTable = !spec->evaluation && spec->table.kind == LuaValue::eTable;
}

namespace {

std::string textField(const LuaValue& table, const std::string& field) {
    const LuaValue* value = findField(table, field);
    return value == nullptr ? "" : textOfValue(*value);
}

// A number beyond the device's integers becomes the nearest one.
std::optional<double> integerOf(double number) {
    if (std::isnan(number)) return std::nullopt;
    return std::clamp<double>(std::trunc(number), INT_MIN, INT_MAX);
}

std::optional<double> numberField(const LuaValue& table, const std::string& field) {
    const LuaValue* value = findField(table, field);
    if (value == nullptr) return std::nullopt;
    if (value->kind == LuaValue::eNumber) return integerOf(value->number);
    if (value->kind != LuaValue::eString || value->text.empty()) return std::nullopt;
    char* end = nullptr;
    const double number = strtod(value->text.c_str(), &end);
    return *end == '\0' ? integerOf(number) : std::nullopt;
}

}  // namespace

bool isText(const LuaValue* value) {
    return value != nullptr && (value->kind == LuaValue::eString || value->kind == LuaValue::eNumber);
}

std::string textOfValue(const LuaValue& value) {
    if (value.kind == LuaValue::eString) return value.text;
    if (value.kind != LuaValue::eNumber) return "";
    char text[40];
    snprintf(text, sizeof text, "%.14g", value.number);
    return text;
}

std::string ImageView::text(const std::string& field) const {
    return textField(table, field);
}

bool ImageView::hasText(const std::string& field) const {
    return isText(findField(table, field));
}

std::optional<double> ImageView::number(const std::string& field) const {
    return numberField(table, field);
}

std::string SpecView::text(const std::string& field) const {
    return textField(file.table, field);
}

bool SpecView::hasText(const std::string& field) const {
    return isText(findField(file.table, field));
}

std::optional<double> SpecView::number(const std::string& field) const {
    return numberField(file.table, field);
}

bool SpecView::hasRealScript() const {
    for (const ScriptView& script : scripts) {
        if (!script.endsRun()) return true;
    }
    return false;
}

bool SpecView::fetchesScriptTar() const {
    return !scripts.empty() && !text("script_url").empty();
}

bool SpecView::hidesParts() const {
    const std::vector<LuaField>& fields = file.table.fields;
    return std::any_of(fields.begin(), fields.end(), [](const LuaField& field) {
        return field.name[0] == '[' &&
               (field.value.kind == LuaValue::eTable || field.value.text == kExitSuccess);
    });
}

bool SpecView::isManifest() const {
    const auto isLocal = [](const ImageView& image) {
        return !image.hasText("hash") && !image.hasText("url");
    };
    return (!images.empty() && std::all_of(images.begin(), images.end(), isLocal)) ||
           (hasRealScript() && !hasText("script_url"));
}

double SpecView::keyOffset() const {
    return number("encr_key_offset").value_or(-1);
}

SpecView viewOf(const SpecFile& file) {
    SpecView view = {file, {}, {}};
    for (size_t i = 0; i < file.table.items.size(); ++i) {
        const LuaValue& item = file.table.items[i];
        if (item.kind == LuaValue::eTable) {
            view.images.push_back({i + 1, item, "img" + std::to_string(view.images.size())});
        } else if (isText(&item)) {
            view.scripts.push_back({i + 1, textOfValue(item)});
        }
    }
    return view;
}
