// The file before evaluation. The device searches the bytes for the marker and the forbidden word,
// and so do these rules.
//
// Keys that are in the file but do not reach the device's record. The table itself knows what Lua kept, the
// lines know what was written: a key in the lines without a value in the table is nil.

#include "checker/rules.h"
#include "signing/signing.h"
#include "spec_view/spec_view.h"
#include "spec_view/words.h"
#include "update_spec/spec_text.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string>

namespace {

constexpr size_t kNearLimit = kMaxSpecSize * 9 / 10 + 1;  // 90 per cent, rounded up
constexpr char kWord[] = "function";
constexpr size_t kWordSize = sizeof kWord - 1;

void checkSize(const SpecFile& file, Findings* findings) {
    const size_t size = file.bytes.size() + (file.awaitsSignature() ? kSignatureTextSize : 0);
    const std::string numbers =
        "The spec has " + std::to_string(size) + " bytes of " + std::to_string(kMaxSpecSize);
    if (size > kMaxSpecSize) {
        findings->add(eSpecTooLarge, file.at(""),
                      numbers + ", and the device's download stops at the limit.");
    } else if (size >= kNearLimit) {
        findings->add(eSpecNearLimit, file.at(""), numbers + ", its signature included where there is one.");
    }
}

bool isWordCharacter(char c) {
    return isalnum(static_cast<unsigned char>(c)) != 0;
}

bool isWholeWord(const std::string& text, size_t at) {
    if (at > 0 && isWordCharacter(text[at - 1])) return false;
    return at + kWordSize == text.size() || !isWordCharacter(text[at + kWordSize]);
}

// On the device, only the first occurrence counts.
void checkWord(const SpecFile& file, Findings* findings) {
    const size_t first = file.text.find(kWord);
    for (size_t at = first; at != std::string::npos; at = file.text.find(kWord, at + 1)) {
        if (!isWholeWord(file.text, at)) continue;
        Finding& finding =
            findings->add(eFunctionWord, file.atByte(at),
                          "The word \"function\" refuses the whole spec, in a string or comment too.");
        if (at == first) return;
        finding.severity = eWarning;
        finding.why = "The word \"function\" is accepted only because it occurs in a longer word further up.";
        return;
    }
}

// Whitespace at the end, which editors add, is not a part of it: the device's decoder skips it.
bool isSignature(const std::string& text) {
    const size_t size = text.find_last_not_of(" \t\r\n") + 1;
    return size == kSignatureTextSize && text.find_first_of(" \t\r\n") >= size;
}

void checkMarker(const SpecFile& file, const SignatureUse& use, Findings* findings) {
    if (!file.hasMarker) return;
    const FindingPlace place = file.atByte(file.text.size());
    if (file.awaitsSignature()) {
        Finding& finding = findings->add(eSignatureMissing, place,
                                         "The spec ends with the marker and has no signature yet.");
        if (use.isUnsigned) finding.severity = eNote;  // the device does not look at it
    } else if (!isSignature(file.signature)) {
        findings->add(
            eCommentAsMarker, place,
            "The last two hyphens are taken for the marker of a signature, and the spec is cut there.");
    } else if (use.publicKey.empty()) {
        findings->add(eSignatureUnverified, place, "There is a signature, but no key to verify it with.");
    }
}

}  // namespace

Findings checkText(const SpecFile& file, const SignatureUse& use) {
    Findings findings;
    checkSize(file, &findings);
    checkWord(file, &findings);
    checkMarker(file, use, &findings);
    if (!file.repeatedKey.empty()) {
        findings.add(eRepeatedKey, file.at(file.repeatedKey),
                     "\"" + file.repeatedKey + "\" is there twice, and the last one counts.");
    }
    return findings;
}

namespace {

using Words = std::vector<std::string>;

const Words kNoKeys;

constexpr size_t kTripleSize = 3;

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

bool isNumber(const std::string& text) {
    return text.find_first_not_of("0123456789") == std::string::npos;
}

// "[7]" is the key of an entry after a gap; its path is that of any entry.
bool isEntryKey(const std::string& name, std::string* number) {
    if (name.size() < 3 || name.front() != '[' || name.back() != ']') return false;
    *number = name.substr(1, name.size() - 2);
    return isNumber(*number) && *number != "0";
}

struct KeyRule {
    const SpecView& spec;
    Findings* findings;

    void table(const LuaValue& value, const std::string& prefix, const Words& known) const {
        for (const LuaField& field : value.fields) {
            std::string number;
            if (isEntryKey(field.name, &number)) {
                gap(prefix, number);
            } else if (std::find(known.begin(), known.end(), field.name) == known.end()) {
                unread(prefix, field.name, known);
            }
        }
    }

    void gap(const std::string& prefix, const std::string& number) const {
        findings->add(eBehindGap, spec.at(prefix + number),
                      "Entry " + number + " comes after an entry that is nil, and is never read.");
    }

    void unread(const std::string& prefix, const std::string& name, const Words& known) const {
        Finding& finding =
            findings->add(eUnreadKey, spec.at(prefix + name), "Nothing reads the key " + quoted(name) + ".");
        const std::string nearest = nearestWord(name, known);
        if (!nearest.empty()) finding.advice = "Did you mean " + quoted(nearest) + "? If not, remove it.";
    }

    void nil(const std::string& path) const {
        const size_t dot = path.rfind('.');
        const std::string name = dot == std::string::npos ? path : path.substr(dot + 1);
        const std::string what = isNumber(name) ? "Entry " + name : quoted(name);
        const std::string around = dot == std::string::npos ? "" : " of " + quoted(path.substr(0, dot));
        Finding& finding =
            findings->add(eNilValue, spec.at(path), what + around + " is nil, as if it were not there.");
        if (isNumber(name)) finding.advice = "Put the entry between quotes, or remove it.";
    }

    void dependencies(const LuaValue& list, const std::string& prefix) const {
        table(list, prefix, kNoKeys);
        for (size_t i = 0; i < list.items.size(); ++i) {
            const LuaValue& triple = list.items[i];
            if (triple.kind != LuaValue::eTable) continue;
            const std::string inside = prefix + std::to_string(i + 1) + ".";
            table(triple, inside, kNoKeys);
            for (size_t extra = kTripleSize; extra < triple.items.size(); ++extra)
                unread(inside, std::to_string(extra + 1), kNoKeys);
        }
    }
};

// The value at a path of the table; null if it is nil or nothing.
const LuaValue* valueAt(const LuaValue& table, const std::string& path) {
    for (const std::string& whole : {path, "[" + path + "]"}) {  // a key may hold a dot itself
        if (const LuaValue* value = findField(table, whole)) return value;
    }
    const size_t dot = path.find('.');
    const std::string name = path.substr(0, dot);
    const LuaValue* value = nullptr;
    const bool isEntry = isNumber(name);
    const size_t number = isEntry && name.size() < 9 ? static_cast<size_t>(atol(name.c_str())) : 0;
    if (number >= 1 && number <= table.items.size()) {
        value = &table.items[number - 1];
    } else {
        value = findField(table, isEntry ? "[" + name + "]" : name);
    }
    if (value == nullptr || dot == std::string::npos) return value;
    return valueAt(*value, path.substr(dot + 1));
}

}  // namespace

Findings checkKeys(const SpecView& spec) {
    Findings findings;
    const KeyRule rule = {spec, &findings};
    rule.table(spec.file.table, "", kSpecKeys);
    for (const ImageView& image : spec.images) {
        rule.table(image.table, image.key(""), kImageKeys);
        const LuaValue* list = findField(image.table, "dep");
        if (list != nullptr && list->kind == LuaValue::eTable) rule.dependencies(*list, image.key("dep."));
    }
    for (const auto& line : spec.file.lines) {
        if (valueAt(spec.file.table, line.first) != nullptr) continue;
        rule.nil(line.first);
    }
    return findings;
}
