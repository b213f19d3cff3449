// Given values are promises of the manifest's author: a broken one stops the build.

#include "computed_values.h"

#include "base_url.h"
#include "member_names.h"

namespace {

constexpr uint64_t kMaxFileSize = INT32_MAX;  // what a device can be told about a file, in bytes

int fault(const KeyPlace& place, const std::string& text) {
    return manifestFault(place.manifest, place.entry, place.key, text, place.error);
}

}  // namespace

int settleUrl(const KeyPlace& place, const std::string& baseUrl, std::string* fileName,
              std::optional<std::string>* url) {
    if (*url) {
        *fileName = fileNameBelow(baseUrl, **url);
        if (!memberNameFault(*fileName).empty() || (*fileName)[0] == '.')
            return fault(place,
                         "is not a file's name behind " + baseUrl + "/, for which the update is built");
    }
    *url = baseUrl + "/" + *fileName;
    return 0;
}

int settleText(const KeyPlace& place, const std::string& computed, std::optional<std::string>* value) {
    if (*value && **value != computed)
        return fault(place, "\"" + **value + "\" is given, but it is \"" + computed + "\"");
    *value = computed;
    return 0;
}

int settleSize(const KeyPlace& place, uint64_t computed, std::optional<uint32_t>* value) {
    if (computed > kMaxFileSize) return fault(place, "the file is larger than a spec can say");
    if (*value && **value < computed) {
        return fault(place, std::to_string(**value) + " is given, but there are " + std::to_string(computed) +
                                " bytes");
    }
    if (!*value) *value = static_cast<uint32_t>(computed);
    return 0;
}

int refuseScriptTar(const Manifest& manifest, std::string* error) {
    const char* given = nullptr;
    if (!manifest.scriptUrl.value_or("").empty()) given = "script_url";
    if (!manifest.scriptHash.value_or("").empty()) given = "script_hash";
    if (manifest.scriptDlsize.value_or(0) != 0) given = "script_dlsize";
    if (given == nullptr) return 0;
    return manifestFault(manifest, kWholeManifest, given, "is given, but no script needs a tar", error);
}
