#include "builder/spec_writer.h"

#include "host/digests.h"
#include "ubi_tools/ubi_volume.h"
#include "update_spec/spec.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr size_t kMostOfUrl = sizeof UpdateSpecVer1::script_url - 1;
static_assert(kMostOfUrl == sizeof UpdateSpecVer1::Image::url - 1, "one limit for all URLs");

// The plain file name that follows the base URL and a slash; empty if none does.
std::string fileNameBelow(const std::string& baseUrl, const std::string& url) {
    if (url.compare(0, baseUrl.size() + 1, baseUrl + "/") != 0) return "";
    const std::string name = url.substr(baseUrl.size() + 1);
    return name[0] != '.' && strpbrk(name.c_str(), "/?#%") == nullptr ? name : "";
}

}  // namespace

Fault settleUrl(const std::string& baseUrl, TarJob* job, Manifest* manifest) {
    const std::string key = job->keyPrefix + "url";
    const std::string url = manifest->settle(key, textValue(baseUrl + "/" + job->name)).text;
    job->name = fileNameBelow(baseUrl, url);
    if (url.size() <= kMostOfUrl) return {};
    return manifest->located(key, "\"" + url + "\" has " + std::to_string(url.size()) +
                                      " bytes, and a device takes " + std::to_string(kMostOfUrl) +
                                      ": shorten --base-url");
}

Fault settleText(const std::string& key, const std::string& computed, Manifest* manifest) {
    const std::string given = manifest->settle(key, textValue(computed)).text;
    if (given == computed) return {};
    return manifest->located(key, "\"" + given + "\" is given, but it is \"" + computed + "\"");
}

Fault settleSize(const std::string& key, uint64_t computed, Manifest* manifest) {
    const LuaValue given = manifest->settle(key, numberValue(static_cast<double>(computed)));
    if (computed > kMaxFileSize) return manifest->located(key, "the file is larger than a spec can say");
    if (given.number >= static_cast<double>(computed)) return {};
    return manifest->located(key, textOfValue(given) + " is given, but there are " +
                                      std::to_string(computed) + " bytes");
}

Fault settleNoScriptTar(Manifest* manifest) {
    for (const char* key : {"script_url", "script_hash", "script_dlsize"}) {
        const LuaValue none = strcmp(key, "script_dlsize") == 0 ? numberValue(0) : textValue("");
        if (textOfValue(manifest->settle(key, none)) != textOfValue(none))
            return manifest->located(key, "is given, but no script needs a tar; take it out");
    }
    return {};
}

Manifest withoutFiles(Manifest manifest, const std::vector<TarJob>& jobs) {
    for (const TarJob& job : jobs) {
        const std::string digest = hexSha256(manifest.find(job.keyPrefix + "url")->text);
        manifest.settle(job.keyPrefix + "hash", textValue(digest));
        manifest.settle(job.keyPrefix + "dlsize", numberValue(1));
        if (job.isOfScripts()) continue;
        manifest.settle(job.keyPrefix + "image_md5", textValue(digest.substr(0, kMd5Length)));
        manifest.settle(job.keyPrefix + "imsize", numberValue(1));
    }
    return manifest;
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

namespace {

// On one line.
std::string quoted(const std::string& text) {
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

// What is no value of a spec stays none.
std::string luaText(const LuaValue& value) {
    if (value.kind == LuaValue::eString) return quoted(value.text);
    if (value.kind == LuaValue::eNumber) return textOfValue(value);
    if (value.kind != LuaValue::eTable) return "false";
    std::string text;
    for (const LuaValue& item : value.items)
        text += (text.empty() ? "" : ", ") + luaText(item);
    return "{ " + text + " }";
}

std::string depText(const LuaValue& list) {
    if (list.kind != LuaValue::eTable) return luaText(list);
    std::string text = "{\n";
    for (const LuaValue& dep : list.items)
        text += "      " + luaText(dep) + ",\n";
    return text + "    }";
}

std::string imageText(const LuaValue& image) {
    std::string text = "  {";
    std::string lead = "\n    ";
    for (const std::string key : {"type", "update", "version", "url", "hash", "dlsize", "image", "image_md5",
                                  "imsize", "preinst", "postinst", "dep"}) {
        const LuaValue* value = findField(image, key);
        if (value == nullptr) continue;
        text += lead + key + " = " + (key == "dep" ? depText(*value) : luaText(*value)) + ",";
        lead = key == "type" || key == "update" ? " " : "\n    ";
    }
    return text + "\n  },\n";
}

}  // namespace

std::string composeSpec(const Manifest& manifest) {
    const SpecView view = manifest.view();
    std::string text = "{\n";
    for (const std::string& key : kSpecKeys) {
        const LuaValue* value = manifest.find(key);
        const bool isUnused = view.scripts.empty() && key.compare(0, 7, "script_") == 0;
        if (value != nullptr && !isUnused) text += "  " + key + " = " + luaText(*value) + ",\n";
    }
    for (const LuaValue& item : manifest.source.table.items)
        text += item.kind == LuaValue::eTable ? imageText(item) : "  " + luaText(item) + ",\n";
    return text + "}\n";
}
