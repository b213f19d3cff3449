#include "build_check.h"

#include "update_check.h"

namespace {

void replaceAll(const std::string& from, const std::string& to, std::string* text) {
    for (size_t at = text->find(from); at != std::string::npos; at = text->find(from, at + to.size()))
        text->replace(at, from.size(), to);
}

}  // namespace

Fault checkBuilt(const BuiltSpec& spec, const Manifest& manifest, ProgressBar* bar, Findings* findings) {
    CheckOptions options;
    options.signatureUse.isUnsigned = true;  // the device's code has verified it
    options.files.folder = spec.folder;
    options.files.bar = bar;
    options.files.built = &spec.tars;
    options.files.secrets = spec.secrets;
    CheckResult checked;
    checked.spec = specFileOf(manifest.file, spec.bytes);
    if (Fault fault = checkLoadedSpec(options, &checked)) return fault;

    // The entries of the manifest are those of the spec, but not on the same lines.
    SpecFile source;
    source.path = manifest.file;
    source.lines = manifest.lines;
    for (Finding& finding : checked.findings.all) {
        if (finding.severity == eNote) continue;
        finding.place = source.at(finding.place.key);
        replaceAll(spec.folder, spec.out, &finding.why);
        findings->all.push_back(finding);
    }
    findings->sort();
    return {};
}
