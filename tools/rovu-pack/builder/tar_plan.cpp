#include "builder/tar_plan.h"

#include "builder/spec_writer.h"
#include "host/files.h"
#include "install/install.h"
#include "spec_view/spec_view.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

namespace {

namespace fs = std::filesystem;

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

bool isBelow(const fs::path& path, const fs::path& folder) {
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

// A manifest may name a file elsewhere, as in "../common/before.sh"; a link must not do so for it.
Fault refuseLinkOut(const std::string& folder, const std::string& source) {
    std::error_code fault;
    const fs::path home = fs::canonical(folder, fault);
    const fs::path real = fault ? fs::path() : fs::canonical(source, fault);
    if (fault) return fileFault(source, fault.value());
    const fs::path named = fs::path(source).is_absolute()
                               ? fs::path(source)
                               : home / fs::path(source).lexically_relative(fs::path(folder));
    if (isBelow(real, home) || named.lexically_normal() == real) return {};
    return {ELOOP, source + ": a link leads out of the manifest's folder, to " + real.string() +
                       "; copy the file, or give --follow-links"};
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

Fault measureInputs(const Manifest& manifest, const std::vector<TarJob>& jobs, bool followsLinks,
                    uint64_t* bytes) {
    *bytes = 0;
    for (const TarJob& job : jobs) {
        uint64_t ofTar = 0;
        for (const TarInput& input : job.inputs) {
            uint64_t size = 0;
            Fault fault = requireRegularFile(input.source, &size);
            if (!fault && !followsLinks) fault = refuseLinkOut(manifest.folder, input.source);
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
