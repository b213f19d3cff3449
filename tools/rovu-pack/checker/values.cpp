// Values that the device accepts unchanged and that then break or weaken the update.

#include "checker/rules.h"
#include "planner/plan.h"
#include "util/version.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iterator>

namespace {

constexpr size_t kSha256Length = 64;
constexpr size_t kMd5Length = 32;
constexpr size_t kMostFields = 4;  // of a version
constexpr unsigned long kMostOfField = 65535;

bool isDigest(const std::string& text, size_t length) {
    return text.size() == length && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

// Placeholders for a digest, or digests of a missing file.
bool isPlaceholder(const std::string& digest) {
    constexpr const char* kOfNothing[] = {"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855",
                                          "d41d8cd98f00b204e9800998ecf8427e"};
    return digest.find_first_not_of(digest[0]) == std::string::npos ||
           std::find(std::begin(kOfNothing), std::end(kOfNothing), digest) != std::end(kOfNothing);
}

// As written, before the device's readers truncate and clamp it. Not a number: 0.
double numberOf(const LuaValue& value) {
    if (value.kind == LuaValue::eNumber) return std::isnan(value.number) ? 0 : value.number;
    return value.kind == LuaValue::eString ? std::strtod(value.text.c_str(), nullptr) : 0;
}

// Up to four fields, none of them empty or above 65535.
bool isPlainVersion(const std::string& text) {
    size_t fields = 0;
    for (size_t at = 0, end = 0; at <= text.size(); at = end + 1, ++fields) {
        end = std::min(text.find('.', at), text.size());
        if (text.find_first_not_of("0123456789", at) < end) return true;  // the device refuses it
        if (end == at || end - at > 9 || std::stoul(text.substr(at, end - at)) > kMostOfField) return false;
    }
    return fields <= kMostFields;
}

// What is odd about a model of the hardware list; empty: nothing.
std::string modelFault(const std::string& model) {
    if (model.empty()) return "The list, or a model in it, is empty.";
    if (std::any_of(model.begin(), model.end(), [](unsigned char c) { return std::isspace(c) != 0; }))
        return "The whitespace in \"" + model + "\" counts as part of the model.";
    if (model.find_first_of(";|") != std::string::npos)
        return "Only commas separate models: \"" + model + "\" is one model.";
    if (std::any_of(model.begin(), model.end(), [](unsigned char c) { return c >= 0x80; }))
        return "\"" + model + "\" has a character that is not ASCII, such as a typographic dash or space.";
    if (model.find_first_of("*?[]") != std::string::npos)
        return "Models are compared verbatim, without wildcards: \"" + model + "\" is one model.";
    if (model.size() + 1 > kMostOfModel)
        return "A device reads " + std::to_string(kMostOfModel) +
               " bytes of its model with the line feed, and \"" + model + "\" is longer.";
    return "";
}

struct ValueRule {
    const SpecView& spec;
    Findings* findings;

    void digest(const std::string& key, const std::string& text, size_t length) const {
        if (isDigest(text, length) && !isPlaceholder(text)) return;
        if (isDigest(text, length)) {
            findings->add(eDigestPlaceholder, spec.at(key),
                          "\"" + text + "\" is the digest of an empty file, or a placeholder for one.");
            return;
        }
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

    void range(const std::string& key, const LuaValue* value) const {
        const double number = value == nullptr ? 0 : numberOf(*value);
        if (number <= INT32_MAX) return;
        findings->add(eNumberTooLarge, spec.at(key),
                      "The device's numbers end at 2147483647, and this is " + textOfValue(*value) + ".");
    }

    void size(const std::string& key, std::optional<double> value) const {
        if (!value || *value >= 0) return;
        findings->add(eNegativeSize, spec.at(key), "The device treats a negative size as a very large one.");
    }

    void versionText(const std::string& key, const LuaValue* value) const {
        if (!isText(value)) return;
        misread(key, textOfValue(*value));
        if (value->kind != LuaValue::eNumber) return;
        findings->add(eVersionNumber, spec.at(key),
                      "A number loses its last zeros, as 3.10 does: the device reads \"" +
                          textOfValue(*value) + "\".");
    }

    void misread(const std::string& key, const std::string& text) const {
        PackedVersion version = 0;
        if (isPlainVersion(text) || parseVersion(&version, text.c_str()) != 0) return;
        char read[32];
        findings->add(eVersionMisread, spec.at(key),
                      "The device reads \"" + text + "\" as " + formatVersion(version, read, sizeof read) +
                          ".");
    }

    void overlay() const {
        const LuaValue* value = findField(spec.file.table, "clone_overlay");
        const double number = value == nullptr ? 0 : numberOf(*value);
        if (number > 0 && number < 1)
            findings->add(eOverlayFraction, spec.at("clone_overlay"),
                          "The device cuts the fraction off, and reads 0.");
        if (number >= 1 && spec.images.empty() && !spec.scripts.empty())
            findings->add(eOverlayWithoutImage, spec.at("clone_overlay"),
                          "Without an image nothing is cloned.");
    }

    void image(const ImageView& image) const {
        range(image.key("dlsize"), findField(image.table, "dlsize"));
        range(image.key("imsize"), findField(image.table, "imsize"));
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

    // The second of two entries is most often an incomplete copy of the first.
    void pair(const ImageView& first, const ImageView& second) const {
        const bool isSameUrl = first.text("url") == second.text("url");
        const bool isSameHash = first.text("hash") == second.text("hash");
        if (isSameUrl && !isSameHash && !first.text("hash").empty() && !second.text("hash").empty()) {
            findings
                ->add(eSameDigest, spec.at(second.key("hash")),
                      "Both images come from one URL, and the digests of its file differ.")
                .severity = eError;
        } else if (!isSameUrl && isSameHash && isDigest(second.text("hash"), kSha256Length)) {
            findings->add(eSameDigest, spec.at(second.key("hash")),
                          "Both images' tars have the same digest.");
        }
        if (first.text("image_md5") == second.text("image_md5") &&
            isDigest(second.text("image_md5"), kMd5Length))
            findings->add(eSameDigest, spec.at(second.key("image_md5")), "Both images have the same digest.");
    }

    void scriptTar() const {
        if (!spec.fetchesScriptTar()) return;
        hash("script_hash", findField(spec.file.table, "script_hash"));
        limit("script_dlsize", spec.number("script_dlsize"));
        range("script_dlsize", findField(spec.file.table, "script_dlsize"));
    }

    void hardware() const {
        if (!spec.hasText("hardware")) return;
        const std::string list = spec.text("hardware");
        for (size_t at = 0, end = 0; at <= list.size(); at = end + 1) {
            end = std::min(list.find(',', at), list.size());
            const std::string model = list.substr(at, end - at);
            std::string fault = modelFault(model);
            if (fault.empty() && ("," + list.substr(0, at)).find("," + model + ",") != std::string::npos)
                fault = "\"" + model + "\" is listed twice: a model may be missing.";
            if (!fault.empty()) findings->add(eHardwareToken, spec.at("hardware"), fault);
        }
    }
};

}  // namespace

Findings checkValues(const SpecView& spec) {
    Findings findings;
    const ValueRule rule = {spec, &findings};
    rule.hardware();
    rule.overlay();
    rule.scriptTar();
    for (const ImageView& image : spec.images)
        rule.image(image);
    if (spec.images.size() == 2) rule.pair(spec.images[0], spec.images[1]);
    return findings;
}
