#include "manifest_fields.h"

#include "nearest_word.h"

#include <algorithm>
#include <cmath>

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
    if (field->kind == LuaValue::eText) {
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
    if (field->kind != LuaValue::eText) {
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
        complaint_ = {key, "a size is not negative"};
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
        good = good && file.value.kind == LuaValue::eText && !file.value.text.empty();
        (*value)[file.name] = file.value.text;
    }
    if (good) return;
    complaint_ = {key, "pairs such as ['before.sh'] = '../common/before.sh' are required"};
}

Complaint refuseUnknownKeys(const LuaValue& table, const std::vector<std::string>& known) {
    for (const LuaField& field : table.fields) {
        if (std::find(known.begin(), known.end(), field.name) != known.end()) continue;
        if (field.name.find_first_not_of("[0123456789]") == std::string::npos)
            return {field.name, "stands after a gap in the list, and would never be read"};
        const std::string nearest = nearestWord(field.name, known);
        const std::string hint = nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?";
        return {field.name, "nothing reads this key" + hint};
    }
    return {};
}
