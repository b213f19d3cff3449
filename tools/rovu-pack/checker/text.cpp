// The file before it is evaluated. The device looks for its marker and for the forbidden word in plain bytes,
// and so does this.

#include "rules.h"
#include "signing.h"
#include "spec_text.h"

#include <cctype>
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

// The first occurrence decides alone on the device.
void checkWord(const SpecFile& file, Findings* findings) {
    const size_t first = file.text.find(kWord);
    for (size_t at = first; at != std::string::npos; at = file.text.find(kWord, at + 1)) {
        if (!isWholeWord(file.text, at)) continue;
        Finding& finding =
            findings->add(eFunctionWord, file.atByte(at),
                          "The word \"function\" refuses the whole spec, in a string or comment too.");
        if (at == first) return;
        finding.severity = eWarning;
        finding.why = "The word \"function\" passes only because it is part of a longer word further up.";
        return;
    }
}

// Whitespace at the end, as an editor adds, is no part of it: the device's decoder passes over it.
bool isSignature(const std::string& text) {
    const size_t size = text.find_last_not_of(" \t\r\n") + 1;
    return size == kSignatureTextSize && text.find_first_of(" \t\r\n") >= size;
}

void checkMarker(const SpecFile& file, const SignatureUse& use, Findings* findings) {
    if (!file.hasMarker) return;
    const FindingPlace place = file.atByte(file.text.size());
    if (file.awaitsSignature()) {
        Finding& finding = findings->add(eSignatureMissing, place,
                                         "The spec ends with the marker, and has no signature after it yet.");
        if (use.isUnsigned) finding.severity = eNote;  // the device does not look at it
    } else if (!isSignature(file.signature)) {
        findings->add(
            eCommentAsMarker, place,
            "The last two hyphens are taken for the marker of a signature, and the spec is cut there.");
    } else if (use.publicKey.empty()) {
        findings->add(eSignatureUnverified, place, "There is a signature, and nothing to verify it with.");
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
