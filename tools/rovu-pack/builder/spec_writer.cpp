#include "spec_writer.h"

#include <cstdio>

namespace {

class Lines {
public:
    explicit Lines(std::string* out, const char* lead) : text_(out), indent_(lead) {}

    void line(const std::string& content) { *text_ += indent_ + content + "\n"; }
    void field(const char* key, const std::string& value) { line(key + (" = " + luaQuoted(value) + ",")); }
    void field(const char* key, uint32_t value) { line(key + (" = " + std::to_string(value) + ",")); }
    void optional(const char* key, const std::string& value) {
        if (!value.empty()) field(key, value);
    }

private:
    std::string* text_;
    std::string indent_;
};

std::string depText(const ManifestDep& dep) {
    return "{ " + luaQuoted(dep.kind) + ", " + luaQuoted(dep.low) + ", " + luaQuoted(dep.high) + " },";
}

void writeImage(const ManifestImage& image, std::string* text) {
    Lines(text, "  ").line("{");
    Lines lines(text, "    ");
    lines.line("type = " + luaQuoted(image.type) + ", update = " + luaQuoted(image.update) +
               ", version = " + luaQuoted(image.version) + ",");
    lines.field("url", image.url.value_or(""));
    lines.field("hash", image.hash.value_or(""));
    lines.field("dlsize", image.dlsize.value_or(0));
    lines.field("image", image.image);
    lines.field("image_md5", image.imageMd5.value_or(""));
    lines.field("imsize", image.imsize.value_or(0));
    lines.optional("preinst", image.preinst);
    lines.optional("postinst", image.postinst);
    if (!image.deps.empty()) {
        lines.line("dep = {");
        for (const ManifestDep& dep : image.deps)
            Lines(text, "      ").line(depText(dep));
        lines.line("},");
    }
    Lines(text, "  ").line("},");
}

bool hasScripts(const Manifest& manifest) {
    for (const ManifestStep& step : manifest.steps) {
        if (!step.image) return true;
    }
    return false;
}

}  // namespace

std::string luaQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (c == '\n') {
            quoted += "\\n";
        } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
            char escape[8];  // three digits, so that a digit after it stays one
            snprintf(escape, sizeof escape, "\\%03d", c);
            quoted += escape;
        } else {
            quoted += c;
        }
    }
    return quoted + "'";
}

std::string composeSpec(const Manifest& manifest) {
    std::string text = "{\n";
    Lines lines(&text, "  ");
    lines.line("version = 1,");
    lines.field("hardware", manifest.hardware);
    if (manifest.cloneOverlay) lines.line("clone_overlay = 1,");
    if (manifest.keyOffset >= 0) lines.field("encr_key_offset", static_cast<uint32_t>(manifest.keyOffset));
    if (hasScripts(manifest)) {
        lines.field("script_url", manifest.scriptUrl.value_or(""));
        lines.field("script_hash", manifest.scriptHash.value_or(""));
        lines.field("script_dlsize", manifest.scriptDlsize.value_or(0));
    }
    for (const ManifestStep& step : manifest.steps) {
        if (step.image) {
            writeImage(*step.image, &text);
        } else {
            lines.line(luaQuoted(step.script) + ",");
        }
    }
    return text + "}\n";
}
