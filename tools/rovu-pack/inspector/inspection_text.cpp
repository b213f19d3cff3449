// The update on one screen: what holds for all of it, then its steps in order.

#include "inspection.h"
#include "printable.h"

#include <cstdio>

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
        return "none: only a device that runs with \"-k NONE\" takes it";
    case Inspection::eMissing:
        return "not there yet: the marker is the end, and \"rovu-pack attach\" appends the signature";
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
        lines.add(
            "", "name its signer's public key with --pub, or leave --pub out to see what it says unverified");
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
                             : "stays as the set that is written has it");
    if (view.fetchesScriptTar())
        lines.add("scripts",
                  view.text("script_url") + ", at most " + bytesInWords(view.number("script_dlsize")));
    addSteps(view, &lines);
    return lines.text();
}
