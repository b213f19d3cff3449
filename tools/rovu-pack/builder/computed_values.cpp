#include "computed_values.h"

#include "base_url.h"
#include "member_names.h"

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
