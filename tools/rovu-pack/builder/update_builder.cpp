// Packs, encrypts and measures the tars one by one, completes the manifest with what it measured, signs the
// spec, and publishes only what the device's own code accepts. The spec moves last: whoever fetches in
// between gets an old spec whose digests do not match, and no device takes that.

#include "update_builder.h"

#include "base_url.h"
#include "computed_values.h"
#include "digests.h"
#include "encryption.h"
#include "files.h"
#include "manifest.h"
#include "signing.h"
#include "spec_trial.h"
#include "spec_writer.h"
#include "staging.h"
#include "tar_archive.h"
#include "tar_plan.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <unistd.h>

namespace {

constexpr char kSpecName[] = "update.lua";
constexpr mode_t kFileMode = 0644;
constexpr uint64_t kPlainPasses = 3;  // over all bytes: digest of the image, packing, digest of the tar
constexpr long long kMaxTarTime = 077777777777LL;  // what a tar's header holds, in seconds

struct Build {
    Manifest manifest;
    std::vector<std::string> commandFiles;  // that the command line names
    std::string baseUrl;
    FileKey fileKey = {};
    time_t time = 0;
    SigningKey signingKey{nullptr, EVP_PKEY_free};
    UpdateStaging staging;
    ProgressBar* bar;
    std::vector<BuiltFile>* made;
    std::string* error;
};

int readTime(time_t* time, std::string* error) {
    const char* text = getenv("SOURCE_DATE_EPOCH");
    if (text == nullptr || *text == '\0') return 0;
    char* end = nullptr;
    errno = 0;
    const long long seconds = strtoll(text, &end, 10);
    if (errno != 0 || *end != '\0' || seconds < 0 || seconds > kMaxTarTime) {
        *error =
            "SOURCE_DATE_EPOCH: \"" + std::string(text) + "\" is not a number of seconds that a tar can hold";
        return EINVAL;
    }
    *time = static_cast<time_t>(seconds);
    return 0;
}

int readFileKey(const std::string& secrets, Build* build) {
    const Manifest& manifest = build->manifest;
    const bool encrypted = manifest.keyOffset >= 0;
    if (!encrypted && secrets.empty()) return 0;
    if (encrypted && !secrets.empty())
        return readSecret(secrets, manifest.keyOffset, &build->fileKey, build->error);
    return manifestFault(manifest, kWholeManifest, "encr_key_offset",
                         encrypted ? "asks for encryption, for which --secrets must name the key file"
                                   : "is missing, but --secrets was given: nothing would be encrypted",
                         build->error);
}

int packTar(const TarJob& job, Build* build, FileDigests* digests) {
    const std::string target = build->staging.pathOf(job.name);
    const std::string plain = build->fileKey.present ? build->staging.scratchPath() : target;
    WorkProgress* progress = build->bar->progress();
    build->bar->begin(job.name);
    if (int rc = writeTar(plain, job.inputs, build->time, progress, build->error); rc != 0) return rc;
    if (build->fileKey.present) {
        if (int rc = encryptFileTo(plain, target, build->fileKey, progress, build->error); rc != 0) return rc;
        unlink(plain.c_str());
    }
    if (int rc = digestFile(target, progress, digests, build->error); rc != 0) return rc;
    build->made->push_back({job.name, digests->size, "sha256", digests->sha256, false});
    return 0;
}

KeyPlace placeOf(const Build& build, const TarJob& job, const char* key) {
    return {build.manifest, job.entry, key, build.error};
}

int makeScriptTar(TarJob* job, Build* build) {
    Manifest& manifest = build->manifest;
    const auto place = [&](const char* key) { return placeOf(*build, *job, key); };
    if (int rc = settleUrl(place("script_url"), build->baseUrl, &job->name, &manifest.scriptUrl); rc != 0)
        return rc;
    FileDigests tar;
    if (int rc = packTar(*job, build, &tar); rc != 0) return rc;
    if (int rc = settleText(place("script_hash"), tar.sha256, &manifest.scriptHash); rc != 0) return rc;
    return settleSize(place("script_dlsize"), tar.size, &manifest.scriptDlsize);
}

int measureImage(const KeyPlace& place, const ManifestImage& image, Build* build, FileDigests* digests) {
    const std::string source = localFileOf(build->manifest, &image, image.image);
    build->bar->begin(image.image);
    if (int rc = digestFile(source, build->bar->progress(), digests, build->error); rc != 0) return rc;
    if (digests->size != 0) return 0;
    return manifestFault(place.manifest, place.entry, place.key, source + " is empty", place.error);
}

int makeImageTar(TarJob* job, Build* build) {
    ManifestImage& image = *build->manifest.steps[job->entry - 1].image;
    const auto place = [&](const char* key) { return placeOf(*build, *job, key); };
    if (int rc = settleUrl(place("url"), build->baseUrl, &job->name, &image.url); rc != 0) return rc;
    FileDigests plain;
    if (int rc = measureImage(place("image"), image, build, &plain); rc != 0) return rc;
    if (int rc = settleText(place("image_md5"), plain.md5, &image.imageMd5); rc != 0) return rc;
    if (int rc = settleSize(place("imsize"), plain.size, &image.imsize); rc != 0) return rc;
    FileDigests tar;
    if (int rc = packTar(*job, build, &tar); rc != 0) return rc;
    build->made->push_back({image.image, plain.size, "md5", plain.md5, true});
    if (int rc = settleText(place("hash"), tar.sha256, &image.hash); rc != 0) return rc;
    return settleSize(place("dlsize"), tar.size, &image.dlsize);
}

// What is made must not take the place of what it is made from.
int refuseOverwriting(const std::string& name, const std::vector<TarJob>& jobs, const Build& build) {
    std::vector<std::string> sources = build.commandFiles;
    for (const TarJob& job : jobs) {
        for (const TarInput& input : job.inputs)
            sources.push_back(input.source);
    }
    for (const std::string& source : sources) {
        if (!build.staging.replaces(name, source)) continue;
        *build.error = source + ": the result would replace it; name another folder with --out";
        return EEXIST;
    }
    return 0;
}

int refuseCollisions(const std::vector<TarJob>& jobs, const Build& build) {
    std::set<std::string> names = {kSpecName};
    for (const TarJob& job : jobs) {
        if (names.insert(job.name).second) continue;
        const std::string text = "two files of the update are called \"" + job.name + "\"";
        return manifestFault(build.manifest, job.entry, "", text, build.error);
    }
    for (const std::string& name : names) {
        if (int rc = refuseOverwriting(name, jobs, build); rc != 0) return rc;
    }
    return 0;
}

int makeTars(std::vector<TarJob>* jobs, Build* build) {
    for (TarJob& job : *jobs) {
        const int rc = job.entry == kWholeManifest ? makeScriptTar(&job, build) : makeImageTar(&job, build);
        if (rc != 0) return rc;
    }
    if (int rc = refuseCollisions(*jobs, *build); rc != 0) return rc;
    const bool scriptTar = !jobs->empty() && jobs->front().entry == kWholeManifest;
    return scriptTar ? 0 : refuseScriptTar(build->manifest, build->error);
}

int makeSpec(Build* build) {
    std::string spec;
    const std::string text = composeSpec(build->manifest);
    if (int rc = signText(text, build->signingKey.get(), &spec, build->error); rc != 0) return rc;
    if (int rc = tryOnDevice(spec, publicPemOf(build->signingKey.get()), build->error); rc != 0) {
        *build->error = build->manifest.file + ": " + *build->error;
        return rc;
    }
    build->made->push_back({kSpecName, spec.size(), "sha256", sha256Digits(spec), false});
    return createFile(build->staging.pathOf(kSpecName), spec, kFileMode, build->error);
}

}  // namespace

int buildUpdate(const BuildOptions& options, ProgressBar* bar, std::vector<BuiltFile>* made,
                std::string* error) {
    Build build;
    build.bar = bar;
    build.made = made;
    build.error = error;
    build.commandFiles = {options.manifest, options.key, options.secrets};
    build.baseUrl = options.baseUrl;
    if (int rc = normaliseBaseUrl(&build.baseUrl, error); rc != 0) return rc;
    if (int rc = readTime(&build.time, error); rc != 0) return rc;
    if (int rc = readManifest(options.manifest, &build.manifest, error); rc != 0) return rc;
    if (int rc = readFileKey(options.secrets, &build); rc != 0) return rc;
    if (int rc = readSigningKey(options.key, &build.signingKey, error); rc != 0) return rc;
    std::vector<TarJob> jobs = planTars(build.manifest);
    uint64_t bytes = 0;
    if (int rc = measureInputs(build.manifest, jobs, &bytes, error); rc != 0) return rc;
    bar->expect(bytes * (kPlainPasses + (build.fileKey.present ? 1 : 0)));
    if (int rc = build.staging.open(options.out, error); rc != 0) return rc;
    if (int rc = makeTars(&jobs, &build); rc != 0) return rc;
    if (int rc = makeSpec(&build); rc != 0) return rc;
    return build.staging.publish(error);
}
