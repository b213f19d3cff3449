#include "reports/inspection.h"

#include "content/image_format.h"
#include "host/files.h"
#include "host/handles.h"
#include "host/limited_work.h"
#include "host/printable.h"
#include "signing/key_files.h"
#include "update_spec/spec_signature.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace {

constexpr size_t kMostBytes = 65536;  // of a file that may be a spec, with room for one that is too large
// With an article; empty: it may be text of some kind.
std::string formatInWords(const std::string& bytes) {
    if (bytes.compare(0, 2, "#!") == 0) return "a script";
    const ImageFormat format = findFormat(bytes.substr(0, kFormatHead));
    if (format.use == eUnknownUse || format.use == eText) return "";
    return (format.use == eCompressed ? "a file " : "") + format.name;
}

// `mayEvaluate`: its table was looked for. Empty: it may be a spec.
std::string meaningOf(const SpecFile& file, bool mayEvaluate) {
    if (file.bytes.empty()) return "an empty file";
    if (std::string kind = keyKindInWords(file.bytes); !kind.empty()) return kind;
    if (std::string format = formatInWords(file.bytes); !format.empty()) return format;
    if (file.bytes.size() > kMostBytes) return "a file that is too large for one";
    if (!mayEvaluate) return "";
    const std::string& fault = file.evaluation.message();
    if (readsVariables(fault)) return "a manifest, which reads what \"build --set\" gives";
    if (isBeyondLimits(file.evaluation)) return "text that is not evaluated: " + fault;
    return fault.empty() ? "text that is not a table" : "text that is not a table: " + fault;
}

Fault readStart(const std::string& path, std::string* bytes) {
    File file;
    uint64_t size = 0;
    if (Fault fault = openRegularFile(path, &file, &size)) return fault;
    std::string start(kMostBytes + 1, '\0');
    start.resize(fread(start.data(), 1, start.size(), file.get()));
    if (ferror(file.get()) != 0) return fileFault(path, errno);
    bytes->swap(start);
    return {};
}

Fault findSigner(const std::vector<std::string>& publicKeys, Inspection* inspection) {
    const SpecFile& file = inspection->file;
    if (!file.hasMarker) return {};
    if (file.awaitsSignature()) {
        inspection->signature = Inspection::eMissing;
        return {};
    }
    inspection->signature = publicKeys.empty() ? Inspection::eNotVerified : Inspection::eOtherKey;
    for (const std::string& key : publicKeys) {
        PublicKey publicKey;
        if (Fault fault = readPublicKey(key, &publicKey)) return fault.of("--pub");
        if (verifySpecSignature(key.c_str(), file.text.data(), file.text.size(), file.signature.data(),
                                file.signature.size()) != 0)
            continue;
        inspection->signature = Inspection::eVerified;
        inspection->key = key;
        inspection->fingerprint = fingerprintOf(publicKey.key);
    }
    return {};
}

}  // namespace

Fault inspectFile(const std::string& path, const std::vector<std::string>& publicKeys,
                  Inspection* inspection) {
    SpecFile& file = inspection->file;
    file.path = path;
    if (Fault fault = readStart(path, &file.bytes)) return fault;
    if (file.bytes.size() <= kMostBytes) {
        if (Fault fault = loadSpecFile(path, &file)) return fault;
    }
    if (Fault fault = findSigner(publicKeys, inspection)) return fault;
    const bool mayEvaluate = publicKeys.empty() || inspection->signature == Inspection::eVerified;
    if (mayEvaluate && file.bytes.size() <= kMostBytes) evaluateTable(&file);
    if (file.evaluation.code() == EINTR) return file.evaluation;
    if (file.hasTable) {
        inspection->kind = viewOf(file).isManifest() ? Inspection::eManifest : Inspection::eSpec;
        return {};
    }
    inspection->foreign = meaningOf(file, mayEvaluate);
    inspection->kind = inspection->foreign.empty() ? Inspection::eUnverified : Inspection::eForeign;
    if (inspection->kind == Inspection::eForeign) inspection->signature = Inspection::eUnsigned;
    return {};
}

bool isSuspect(const Inspection& inspection) {
    return inspection.kind != Inspection::eSpec || inspection.signature == Inspection::eMissing ||
           inspection.signature == Inspection::eOtherKey;
}

std::string dependenciesInWords(const ImageView& image) {
    const LuaValue* list = findField(image.table, "dep");
    std::string words;
    if (list == nullptr) return words;
    for (const LuaValue& entry : list->items) {
        if (entry.items.size() != 3) continue;  // the device skips it too
        std::string kind = textOfValue(entry.items[0]);
        const bool negated = !kind.empty() && kind.front() == '!';
        if (negated) kind.erase(0, 1);
        words += std::string(words.empty() ? "" : ", ") + (negated ? "not " : "") + kind + " " +
                 textOfValue(entry.items[1]) + " to " + textOfValue(entry.items[2]);
    }
    return words;
}

namespace {

using Json = nlohmann::ordered_json;

constexpr int kIndent = 2;

Json orNull(const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

Json orNull(std::optional<double> number) {
    return number ? Json(static_cast<int64_t>(*number)) : Json(nullptr);
}

const char* kindName(Inspection::Kind kind) {
    const char* names[] = {"spec", "manifest", "foreign", "unverified"};
    return names[kind];
}

const char* signatureName(Inspection::Signature signature) {
    const char* names[] = {"none", "missing", "not verified", "verified", "other key"};
    return names[signature];
}

Json imageJson(const ImageView& image) {
    return {{"entry", image.entry},
            {"kind", image.text("type")},
            {"version", image.text("version")},
            {"mandatory", image.isMandatory()},
            {"size", orNull(image.number("imsize"))},
            {"md5", image.text("image_md5")},
            {"image", image.text("image")},
            {"url", image.text("url")},
            {"most_bytes", orNull(image.number("dlsize"))},
            {"sha256", orNull(image.text("hash"))},
            {"needs", orNull(dependenciesInWords(image))},
            {"preinst", orNull(image.text("preinst"))},
            {"postinst", orNull(image.text("postinst"))}};
}

void addUpdate(const SpecView& view, Json* whole) {
    Json scripts = Json::array();
    for (const ScriptView& script : view.scripts)
        scripts.push_back({{"entry", script.entry}, {"name", script.name}, {"ends_run", script.endsRun()}});
    Json images = Json::array();
    for (const ImageView& image : view.images)
        images.push_back(imageJson(image));
    const bool isEncrypted = view.keyOffset() >= 0;
    (*whole)["hardware"] = view.text("hardware");
    (*whole)["encrypted"] = isEncrypted;
    (*whole)["key_offset"] = isEncrypted ? orNull(view.number("encr_key_offset")) : Json(nullptr);
    (*whole)["clones_overlay"] = view.number("clone_overlay").value_or(0) > 0;
    (*whole)["script_url"] = orNull(view.text("script_url"));
    (*whole)["scripts"] = scripts;
    (*whole)["images"] = images;
}

}  // namespace

std::string inspectionJson(const Inspection& inspection) {
    const bool isForeign = inspection.kind == Inspection::eForeign;
    const bool isShown = !isForeign && inspection.kind != Inspection::eUnverified;
    Json whole = {{"file", inspection.file.path},
                  {"bytes", isForeign ? Json(nullptr) : Json(inspection.file.bytes.size())},
                  {"kind", kindName(inspection.kind)},
                  {"seems", orNull(inspection.foreign)},
                  {"signature", signatureName(inspection.signature)},
                  {"key", orNull(inspection.key)},
                  {"fingerprint", orNull(inspection.fingerprint)}};
    if (isShown) addUpdate(viewOf(inspection.file), &whole);
    // What is no UTF-8 in the spec must not end the program, and DEL or C1 not reach a terminal: hence ASCII.
    return whole.dump(kIndent, ' ', true, Json::error_handler_t::replace) + "\n";
}

namespace {

constexpr size_t kLabelWidth = 12;

class Lines {
public:
    void add(const std::string& label, const std::string& value) {
        const std::string shown = printable(label);
        text_ += "  " + shown +
                 std::string(shown.size() < kLabelWidth ? kLabelWidth - shown.size() : 1, ' ') +
                 printable(value) + "\n";
    }
    void addPlain(const std::string& line) { text_ += printable(line) + "\n"; }
    const std::string& text() const { return text_; }

private:
    std::string text_;
};

std::string bytesInWords(std::optional<double> bytes) {
    if (!bytes || *bytes <= 0) return "no limit";
    char text[40];
    snprintf(text, sizeof text, "%.0f bytes", *bytes);
    return text;
}

std::string signatureInWords(const Inspection& inspection) {
    switch (inspection.signature) {
    case Inspection::eUnsigned:
        return "none: only a device that runs with \"-k NONE\" accepts it";
    case Inspection::eMissing:
        return "missing: the file ends with the marker, and \"rovu-pack attach\" appends the signature";
    case Inspection::eNotVerified:
        return "not verified: name the devices' public key with --pub";
    case Inspection::eVerified:
        return "by the private key of " + inspection.key;
    case Inspection::eOtherKey:
        break;
    }
    return "by another key than those of --pub, or the spec was changed after it was signed";
}

std::string encryptionInWords(const SpecView& view) {
    if (view.keyOffset() < 0) return "none";
    char text[80];
    snprintf(text, sizeof text, "AES-256, with the secret at byte %.0f of the devices' key file",
             view.keyOffset());
    return text;
}

void addImage(const ImageView& image, Lines* lines) {
    lines->add(std::to_string(image.entry) + " " + image.text("type"),
               image.text("version") + ", " + (image.isMandatory() ? "mandatory" : "optional") + ", " +
                   bytesInWords(image.number("imsize")) + ", MD5 " + image.text("image_md5"));
    lines->add("", image.text("image") + " in " + image.text("url") + ", at most " +
                       bytesInWords(image.number("dlsize")));
    if (const std::string needs = dependenciesInWords(image); !needs.empty())
        lines->add("", "needs " + needs);
    if (!image.text("preinst").empty())
        lines->add("", "runs " + image.text("preinst") + " before it is flashed");
    if (!image.text("postinst").empty())
        lines->add("", "runs " + image.text("postinst") + " after it is flashed");
}

void addSteps(const SpecView& view, Lines* lines) {
    auto image = view.images.begin();
    auto script = view.scripts.begin();
    while (image != view.images.end() || script != view.scripts.end()) {
        const bool isImage =
            script == view.scripts.end() || (image != view.images.end() && image->entry < script->entry);
        if (isImage) {
            addImage(*image++, lines);
            continue;
        }
        const std::string what = script->endsRun() ? "ends the run" : "script " + script->name;
        lines->add(std::to_string(script->entry), what);
        ++script;
    }
}

}  // namespace

std::string inspectionText(const Inspection& inspection) {
    Lines lines;
    const std::string& path = inspection.file.path;
    if (inspection.kind == Inspection::eForeign) {
        lines.addPlain(path + ": not a spec, but " + inspection.foreign);
        return lines.text();
    }
    if (inspection.kind == Inspection::eManifest) {
        lines.addPlain(path + ": not a spec, but a manifest, from which \"rovu-pack build\" makes one");
        return lines.text();
    }
    if (inspection.kind == Inspection::eUnverified) {
        lines.addPlain(path + ": not evaluated, since no key of --pub verifies it");
        lines.add("signature", signatureInWords(inspection));
        lines.add("",
                  "name its signer's public key with --pub, or omit --pub to see the unverified contents");
        return lines.text();
    }
    const SpecView view = viewOf(inspection.file);
    lines.addPlain(path + ": a spec of " + std::to_string(inspection.file.bytes.size()) + " bytes");
    lines.add("signature", signatureInWords(inspection));
    if (!inspection.fingerprint.empty())
        lines.add("", "whose fingerprint is SHA256 " + inspection.fingerprint);
    lines.add("models", view.text("hardware"));
    lines.add("encryption", encryptionInWords(view));
    lines.add("overlay", view.number("clone_overlay").value_or(0) > 0
                             ? "the active set's is copied"
                             : "unchanged on the set that is written");
    if (view.fetchesScriptTar())
        lines.add("scripts",
                  view.text("script_url") + ", at most " + bytesInWords(view.number("script_dlsize")));
    addSteps(view, &lines);
    return lines.text();
}
