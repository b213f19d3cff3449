// Keys keep the order in which they are written here.

#include "inspection.h"

#include <nlohmann/json.hpp>

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
