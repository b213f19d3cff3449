#include "builder/tar_plan.h"

#include "host/files.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

namespace {

namespace fs = std::filesystem;

void addInput(const Manifest& manifest, const std::string& prefix, const std::string& key,
              const std::string& member, TarJob* job) {
    for (const TarInput& input : job->inputs) {
        if (input.member == member) return;
    }
    const bool isScript = job->isOfScripts() || member != job->image;
    job->inputs.push_back({member, manifest.localFileOf(prefix, member), isScript});
    job->keys.push_back(key);
}

TarJob imageJob(const Manifest& manifest, const ImageView& image) {
    TarJob job = {image.key(""), image.text("image"), image.text("type") + ".tar", {}, {}};
    for (const char* key : {"preinst", "image", "postinst"}) {
        if (!image.text(key).empty())
            addInput(manifest, image.key(""), image.key(key), image.text(key), &job);
    }
    return job;
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
    const SpecView view = manifest.view();
    TarJob scripts = {"script_", "", "scripts.tar", {}, {}};
    for (const ScriptView& script : view.scripts) {
        if (!script.endsRun()) addInput(manifest, "", script.key(), script.name, &scripts);
    }
    std::vector<TarJob> jobs;
    if (!scripts.inputs.empty()) jobs.push_back(scripts);
    for (const ImageView& image : view.images)
        jobs.push_back(imageJob(manifest, image));
    return jobs;
}

Fault measureInputs(const Manifest& manifest, const std::vector<TarJob>& jobs, bool followsLinks,
                    uint64_t* bytes) {
    *bytes = 0;
    for (const TarJob& job : jobs) {
        uint64_t ofTar = 0;
        for (size_t i = 0; i < job.inputs.size(); ++i) {
            const TarInput& input = job.inputs[i];
            uint64_t size = 0;
            Fault fault = requireRegularFile(input.source, &size);
            if (!fault && !followsLinks) fault = refuseLinkOut(manifest.folder, input.source);
            ofTar += size;
            if (!fault && ofTar > kMaxFileSize) fault = tooLarge(input, size);
            if (fault) return manifest.located(job.keys[i], fault.message());
        }
        *bytes += ofTar;
    }
    return {};
}
