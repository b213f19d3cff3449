#include "builder/build_result.h"

#include "checker/update_check.h"
#include "host/text.h"
#include "reports/findings.h"

Fault checkBuilt(const BuiltSpec& spec, const Manifest& manifest, ProgressBar* bar, Findings* findings) {
    CheckOptions options;
    options.signatureUse.isUnsigned = true;  // the device's code has verified it
    options.files.folder = spec.folder;
    options.files.bar = bar;
    options.files.built = &spec.tars;
    options.files.secrets = spec.secrets;
    CheckResult checked;
    checked.spec = specFileOf(manifest.source.path, spec.bytes);
    if (Fault fault = checkLoadedSpec(options, &checked)) return fault;

    // The entries of the manifest are those of the spec, but not on the same lines.
    findings->all.clear();
    for (Finding& finding : checked.findings.all) {
        if (finding.severity == eNote) continue;
        finding.place = manifest.source.at(finding.place.key);
        if (!spec.folder.empty()) replaceAll(spec.folder, spec.out, &finding.why);
        findings->all.push_back(finding);
    }
    findings->sort();
    return {};
}

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
