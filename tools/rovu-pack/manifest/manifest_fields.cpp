// The kinds of fields. Stricter than the device, which takes a number for a text: 3.10 would be 3.1.

#include "manifest_fields.h"

#include "nearest_word.h"

#include <cmath>

void FieldTaker::text(const char* key, size_t limit, std::string* value, bool required) {
    std::optional<std::string> found;
    given(key, limit, &found);
    if (result != 0) return;
    if (found) {
        *value = *found;
    } else if (required) {
        result = manifestFault(table.manifest, table.entry, key, "is missing", error);
    }
}

void FieldTaker::number(const char* key, double* value, bool required) {
    if (result != 0) return;
    const LuaValue* field = findField(table.value, key);
    if (field == nullptr) {
        if (required) result = manifestFault(table.manifest, table.entry, key, "is missing", error);
        return;
    }
    const double number = field->number;
    if (field->kind == LuaValue::eNumber && std::floor(number) >= number && std::fabs(number) <= INT32_MAX) {
        *value = number;
        return;
    }
    result = manifestFault(table.manifest, table.entry, key, "a whole number is wanted", error);
}

void FieldTaker::given(const char* key, size_t limit, std::optional<std::string>* value) {
    if (result != 0) return;
    const LuaValue* field = findField(table.value, key);
    if (field == nullptr) return;
    if (field->kind != LuaValue::eText) {
        result = manifestFault(table.manifest, table.entry, key, "a text in quotes is wanted", error);
    } else if (field->text.size() > limit) {
        const std::string most = "has more than " + std::to_string(limit) + " bytes";
        result = manifestFault(table.manifest, table.entry, key, most, error);
    } else {
        *value = field->text;
    }
}

void FieldTaker::given(const char* key, std::optional<uint32_t>* value) {
    constexpr double kAbsent = -1;
    double number = kAbsent;
    this->number(key, &number, false);
    if (result != 0 || findField(table.value, key) == nullptr) return;
    if (number < 0) {
        result = manifestFault(table.manifest, table.entry, key, "a size is not negative", error);
        return;
    }
    *value = static_cast<uint32_t>(number);
}

void FieldTaker::files(const char* key, LocalFiles* value) {
    if (result != 0) return;
    const LuaValue* field = findField(table.value, key);
    if (field == nullptr) return;
    bool good = field->kind == LuaValue::eTable && field->items.empty();
    for (const LuaField& file : field->fields) {
        good = good && file.value.kind == LuaValue::eText && !file.value.text.empty();
        (*value)[file.name] = file.value.text;
    }
    if (good) return;
    result = manifestFault(table.manifest, table.entry, key,
                           "pairs such as ['before.sh'] = '../common/before.sh' are wanted", error);
}

int refuseUnknownKeys(const ManifestTable& table, const std::vector<std::string>& known, std::string* error) {
    for (const LuaField& field : table.value.fields) {
        bool isKnown = false;
        for (const std::string& key : known)
            isKnown = isKnown || key == field.name;
        if (isKnown) continue;
        if (field.name.find_first_not_of("[0123456789]") == std::string::npos) {
            return manifestFault(table.manifest, table.entry, field.name,
                                 "stands behind a gap in the list, and would never be read", error);
        }
        const std::string nearest = nearestWord(field.name, known);
        const std::string hint = nearest.empty() ? "" : "; \"" + nearest + "\" is meant?";
        return manifestFault(table.manifest, table.entry, field.name, "nothing reads this key" + hint, error);
    }
    return 0;
}
