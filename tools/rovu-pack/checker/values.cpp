// Values that the device takes unchanged and that then fail, or weaken, the update.

#include "rules.h"

#include <algorithm>

namespace {

constexpr size_t kSha256Length = 64;
constexpr size_t kMd5Length = 32;

bool isDigest(const std::string& text, size_t length) {
    return text.size() == length && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

struct ValueRule {
    const SpecView& spec;
    Findings* findings;

    void digest(const std::string& key, const std::string& text, size_t length) const {
        if (isDigest(text, length)) return;
        findings->add(eBadDigest, spec.at(key),
                      "The device compares with a lower-case hex digest of " + std::to_string(length) +
                          " characters, which \"" + text + "\" never matches.");
    }

    void hash(const std::string& key, const LuaValue* value) const {
        if (!isText(value)) return;
        const std::string text = textOfValue(*value);
        if (text.empty()) {
            findings->add(eNoDigest, spec.at(key), "Without a digest the file is accepted unchecked.");
        } else {
            digest(key, text, kSha256Length);
        }
    }

    void limit(const std::string& key, std::optional<double> value) const {
        if (value == 0)
            findings->add(eLimitZero, spec.at(key), "0 is no limit, and the progress shows no percentage.");
        size(key, value);
    }

    void size(const std::string& key, std::optional<double> value) const {
        if (!value || *value >= 0) return;
        findings->add(eNegativeSize, spec.at(key), "The device takes a negative size for a very large one.");
    }

    void versionText(const std::string& key, const LuaValue* value) const {
        if (value == nullptr || value->kind != LuaValue::eNumber) return;
        findings->add(eVersionNumber, spec.at(key),
                      "A number loses its last zeros, as 3.10 does: the device reads \"" +
                          textOfValue(*value) + "\".");
    }

    void image(const ImageView& image) const {
        hash(image.key("hash"), findField(image.table, "hash"));
        if (image.hasText("image_md5")) digest(image.key("image_md5"), image.text("image_md5"), kMd5Length);
        limit(image.key("dlsize"), image.number("dlsize"));
        size(image.key("imsize"), image.number("imsize"));
        if (image.number("imsize") == 0)
            findings->add(eVolumeTooSmall, spec.at(image.key("imsize")),
                          "A volume of 0 bytes holds no image.");
        versionText(image.key("version"), findField(image.table, "version"));
        dependencies(image);
    }

    void dependencies(const ImageView& image) const {
        const LuaValue* list = findField(image.table, "dep");
        for (size_t i = 0; list != nullptr && i < list->items.size(); ++i) {
            const LuaValue& triple = list->items[i];
            for (size_t position = 1; position < std::min<size_t>(triple.items.size(), 3); ++position) {
                const std::string key = std::to_string(i + 1) + "." + std::to_string(position + 1);
                versionText(image.key("dep." + key), &triple.items[position]);
            }
        }
    }

    void scriptTar() const {
        if (!spec.fetchesScriptTar()) return;
        hash("script_hash", findField(spec.file.table, "script_hash"));
        limit("script_dlsize", spec.number("script_dlsize"));
    }

    void hardware() const {
        if (!spec.hasText("hardware")) return;
        const std::string list = spec.text("hardware");
        for (size_t at = 0, end = 0; at <= list.size(); at = end + 1) {
            end = std::min(list.find(',', at), list.size());
            const std::string model = list.substr(at, end - at);
            if (!model.empty() && model.front() != ' ' && model.back() != ' ') continue;
            findings->add(eHardwareToken, spec.at("hardware"),
                          model.empty() ? "The list, or a model in it, is empty."
                                        : "The spaces of \"" + model + "\" count as part of the model.");
        }
    }
};

}  // namespace

Findings checkValues(const SpecView& spec) {
    Findings findings;
    const ValueRule rule = {spec, &findings};
    rule.hardware();
    rule.scriptTar();
    for (const ImageView& image : spec.images)
        rule.image(image);
    return findings;
}
