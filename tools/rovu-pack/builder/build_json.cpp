#include "build_json.h"

#include "findings_json.h"

namespace {

using Json = nlohmann::ordered_json;

Json fileJson(const BuiltFile& file) {
    return {{"name", file.name}, {"bytes", file.size}, {file.digestKind, file.digest}};
}

// An image belongs to the file before it.
Json filesJson(const BuildResult& result) {
    Json files = Json::array();
    if (result.isRefused) return files;
    for (const BuiltFile& file : result.files) {
        if (file.isMember) {
            files.back()["image"] = fileJson(file);
            continue;
        }
        files.push_back(fileJson(file));
        files.back()["image"] = nullptr;
    }
    return files;
}

}  // namespace

std::string buildJson(const BuildOptions& options, const BuildResult& result) {
    Json whole = {{"manifest", options.manifest}, {"out", options.out}, {"made", !result.isRefused}};
    addFindings(result.findings, &whole);
    whole["to_sign"] = result.toSign.empty() ? Json(nullptr) : Json(result.toSign);
    whole["files"] = filesJson(result);
    return jsonText(whole);
}
