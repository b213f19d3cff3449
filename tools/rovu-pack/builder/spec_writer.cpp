#include "builder/spec_writer.h"

#include "builder/manifest.h"
#include "builder/spec_writer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

Complaint settleUrl(const char* key, const std::string& baseUrl, size_t limit, std::string* fileName,
                    std::optional<std::string>* url) {
    if (*url) {
        *fileName = fileNameBelow(baseUrl, **url);
        if (!memberNameFault(*fileName).empty() || (*fileName)[0] == '.')
            return {key, "is not a file name after " + baseUrl + "/, for which the update is built"};
    }
    *url = baseUrl + "/" + *fileName;
    if ((*url)->size() > limit) {
        return {key, "\"" + **url + "\" has " + std::to_string((*url)->size()) +
                         " bytes, and a device takes " + std::to_string(limit) + ": shorten --base-url"};
    }
    return {};
}

Complaint settleText(const char* key, const std::string& computed, std::optional<std::string>* value) {
    if (*value && **value != computed)
        return {key, "\"" + **value + "\" is given, but it is \"" + computed + "\""};
    *value = computed;
    return {};
}

Complaint settleSize(const char* key, uint64_t computed, std::optional<uint32_t>* value) {
    if (computed > kMaxFileSize) return {key, "the file is larger than a spec can say"};
    if (*value && **value < computed) {
        return {key,
                std::to_string(**value) + " is given, but there are " + std::to_string(computed) + " bytes"};
    }
    if (!*value) *value = static_cast<uint32_t>(computed);
    return {};
}

Complaint refuseScriptTar(const Manifest& manifest) {
    const char* given = nullptr;
    if (!manifest.scriptUrl.value_or("").empty()) given = "script_url";
    if (!manifest.scriptHash.value_or("").empty()) given = "script_hash";
    if (manifest.scriptDlsize.value_or(0) != 0) given = "script_dlsize";
    if (given == nullptr) return {};
    return {given, "is given, but no script needs a tar"};
}

Fault normaliseBaseUrl(std::string* url) {
    while (!url->empty() && url->back() == '/')
        url->pop_back();
    const size_t scheme = url->find("://");
    bool good = scheme != std::string::npos && scheme > 0 && url->size() > scheme + 3;
    for (const char c : *url)
        good = good && static_cast<unsigned char>(c) > 0x20 && c != '\'' && c != '"' && c != 0x7F;
    if (good) return {};
    return {EINVAL, "--base-url: \"" + *url + "\" is not a URL such as http://updates.example/2.5"};
}

std::string fileNameBelow(const std::string& baseUrl, const std::string& url) {
    if (url.compare(0, baseUrl.size() + 1, baseUrl + "/") != 0) return "";
    const std::string name = url.substr(baseUrl.size() + 1);
    const bool plain = name != "." && name != ".." && strpbrk(name.c_str(), "/?#%") == nullptr;
    return plain ? name : "";
}

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
