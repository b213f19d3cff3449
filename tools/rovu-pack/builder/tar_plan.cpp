#include "tar_plan.h"

#include "computed_values.h"
#include "files.h"
#include "install.h"
#include "spec_words.h"

#include <cerrno>

namespace {

void addInput(const Manifest& manifest, const ManifestImage* image, const std::string& member, bool isScript,
              std::vector<TarInput>* inputs) {
    for (const TarInput& input : *inputs) {
        if (input.member == member) return;
    }
    inputs->push_back({member, manifest.localFileOf(image, member), isScript});
}

TarJob imageJob(const Manifest& manifest, size_t entry) {
    const ManifestImage& image = *manifest.steps[entry - 1].image;
    TarJob job = {entry, {}, image.type + ".tar"};
    if (!image.preinst.empty()) addInput(manifest, &image, image.preinst, true, &job.inputs);
    addInput(manifest, &image, image.image, false, &job.inputs);
    if (!image.postinst.empty()) addInput(manifest, &image, image.postinst, true, &job.inputs);
    return job;
}

// The key that names the member in its image's table; none in the script tar.
const char* keyOf(const Manifest& manifest, const TarJob& job, const std::string& member) {
    if (job.entry == kWholeManifest) return "";
    const ManifestImage& image = *manifest.steps[job.entry - 1].image;
    if (member == image.image) return "image";
    return member == image.preinst ? "preinst" : "postinst";
}

// The entry that names the member.
size_t entryOf(const Manifest& manifest, const TarJob& job, const std::string& member) {
    if (job.entry != kWholeManifest) return job.entry;
    for (size_t entry = 1; entry <= manifest.steps.size(); ++entry) {
        if (manifest.steps[entry - 1].script == member) return entry;
    }
    return kWholeManifest;
}

Fault tooLarge(const TarInput& input, uint64_t size) {
    return {EFBIG, input.source + ": it has " + std::to_string(size) +
                       " bytes, and no tar of an update has more than " + std::to_string(kMaxFileSize) +
                       ", the largest size that a spec can say"};
}

}  // namespace

std::vector<TarJob> planTars(const Manifest& manifest) {
    TarJob scripts = {kWholeManifest, {}, "scripts.tar"};
    std::vector<TarJob> jobs;
    for (size_t entry = 1; entry <= manifest.steps.size(); ++entry) {
        const ManifestStep& step = manifest.steps[entry - 1];
        if (step.image) {
            jobs.push_back(imageJob(manifest, entry));
        } else if (step.script != kExitSuccess) {
            addInput(manifest, nullptr, step.script, true, &scripts.inputs);
        }
    }
    if (!scripts.inputs.empty()) jobs.insert(jobs.begin(), scripts);
    return jobs;
}

Fault measureInputs(const Manifest& manifest, const std::vector<TarJob>& jobs, uint64_t* bytes) {
    *bytes = 0;
    for (const TarJob& job : jobs) {
        uint64_t ofTar = 0;
        for (const TarInput& input : job.inputs) {
            uint64_t size = 0;
            Fault fault = requireRegularFile(input.source, &size);
            ofTar += size;
            if (!fault && ofTar > kMaxFileSize) fault = tooLarge(input, size);
            if (fault) {
                const Complaint complaint = {keyOf(manifest, job, input.member), fault.message()};
                return manifest.located(entryOf(manifest, job, input.member), complaint);
            }
        }
        *bytes += ofTar;
    }
    return {};
}
