#include "builder/update_builder.h"

#include "archive/output_file.h"
#include "archive/tar_archive.h"
#include "builder/build_result.h"
#include "builder/manifest_reader.h"
#include "builder/spec_writer.h"
#include "builder/staging.h"
#include "builder/tar_plan.h"
#include "host/digests.h"
#include "host/files.h"
#include "signing/key_files.h"
#include "signing/served_keys.h"
#include "signing/signing.h"
#include "spec_view/device_verdict.h"
#include "update_spec/spec.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <set>
#include <unistd.h>

namespace {

constexpr char kSpecName[] = "update.lua";
constexpr mode_t kFileMode = 0644;
constexpr long long kMaxTarTime = 077777777777LL;  // what a tar's header holds, in seconds

struct Build {
    Manifest manifest;
    std::vector<std::string> commandFiles;  // that the command line names
    std::string baseUrl;
    FileKey fileKey = {};
    time_t time = 0;
    SigningKey signingKey;
    UpdateStaging staging;
    TarContents tars;
    ProgressBar* bar;
    BuildResult* result;
};

Fault readTime(time_t* time) {
    const char* text = getenv("SOURCE_DATE_EPOCH");
    if (text == nullptr || *text == '\0') return {};
    char* end = nullptr;
    errno = 0;
    const long long seconds = strtoll(text, &end, 10);
    if (errno != 0 || *end != '\0' || seconds < 0 || seconds > kMaxTarTime) {
        return {EINVAL, "SOURCE_DATE_EPOCH: \"" + std::string(text) +
                            "\" is not a number of seconds that a tar can hold"};
    }
    *time = static_cast<time_t>(seconds);
    return {};
}

Fault readFileKey(const std::string& secrets, Build* build) {
    const Manifest& manifest = build->manifest;
    const bool isEncrypted = manifest.keyOffset >= 0;
    if (!isEncrypted && secrets.empty()) return {};
    if (isEncrypted && !secrets.empty()) {
        Fault fault = readSecret(secrets, manifest.keyOffset, &build->fileKey);
        return fault ? fault.of("--secrets") : fault;
    }
    const char* text = isEncrypted ? "asks for encryption, for which --secrets must name the key file"
                                   : "is missing, but --secrets was given: nothing would be encrypted";
    return manifest.located(kWholeManifest, {"encr_key_offset", text});
}

Fault readKey(const BuildOptions& options, SigningKey* key) {
    return options.isUnsigned ? Fault() : readSigningKey(options.key, options.keyPass, key);
}

struct PackedTar {
    uint64_t size = 0;  // bytes, encrypted if the update is
    std::string sha256;
    std::string imageMd5;
    uint64_t imageSize = 0;
};

// For the check, which then need not read the tar.
void note(const std::string& member, const char* bytes, size_t size, TarContent* built) {
    for (TarMember& candidate : built->members) {
        if (candidate.name == member) candidate.size += size;
    }
    std::string& script = built->scripts[member];
    script.append(bytes, std::min(size, kMostOfScript - script.size()));
}

// In one pass over the files. `image` is the member whose digest the spec needs; null: none.
Fault packTar(const TarJob& job, const std::string* image, Build* build, PackedTar* packed) {
    WorkProgress* progress = build->bar->progress();
    build->bar->begin(job.name);
    OutputFile file;
    if (Fault fault = file.open(build->staging.pathOf(job.name), build->fileKey)) return fault;
    Digest md5(EVP_md5());
    TarContent* built = &build->tars[job.name];
    for (const TarInput& input : job.inputs)
        built->members.push_back({input.member, TarMember::eFile, 0, "", false});
    const ByteSink add = [&file](const char* bytes, size_t size) { return file.add(bytes, size); };
    const InputSink read = [&](const TarInput& input, const char* bytes, size_t size) {
        reportWork(progress, size);
        note(input.member, bytes, size, built);
        if (image == nullptr || input.member != *image) return;
        md5.add(bytes, size);
        built->image.add(packed->imageSize, bytes, size);
        packed->imageSize += size;
    };
    if (Fault fault = writeTar(job.inputs, build->time, add, read)) return fault;
    if (Fault fault = file.finish(&packed->size, &packed->sha256)) return fault;
    packed->imageMd5 = md5.hex();
    if (packed->imageMd5.empty()) return fileFault(job.name, ENOMEM);
    build->result->files.push_back({job.name, packed->size, "sha256", packed->sha256, false});
    return {};
}

Fault makeScriptTar(const TarJob& job, Build* build) {
    Manifest& manifest = build->manifest;
    const auto located = [&](const Complaint& complaint) { return manifest.located(job.entry, complaint); };
    PackedTar tar;
    if (Fault fault = packTar(job, nullptr, build, &tar)) return fault;
    if (Fault fault = located(settleText("script_hash", tar.sha256, &manifest.scriptHash))) return fault;
    return located(settleSize("script_dlsize", tar.size, &manifest.scriptDlsize));
}

Fault makeImageTar(const TarJob& job, Build* build) {
    const Manifest& manifest = build->manifest;
    ManifestImage& image = *build->manifest.steps[job.entry - 1].image;
    const auto located = [&](const Complaint& complaint) { return manifest.located(job.entry, complaint); };
    PackedTar tar;
    if (Fault fault = packTar(job, &image.image, build, &tar)) return fault;
    if (tar.imageSize == 0)
        return located({"image", manifest.localFileOf(&image, image.image) + " is empty"});
    if (Fault fault = located(settleText("image_md5", tar.imageMd5, &image.imageMd5))) return fault;
    if (Fault fault = located(settleSize("imsize", tar.imageSize, &image.imsize))) return fault;
    build->result->files.push_back({image.image, tar.imageSize, "md5", tar.imageMd5, true});
    if (Fault fault = located(settleText("hash", tar.sha256, &image.hash))) return fault;
    return located(settleSize("dlsize", tar.size, &image.dlsize));
}

// The output must not take the place of its input.
Fault refuseOverwriting(const std::string& name, const std::vector<TarJob>& jobs, const Build& build) {
    std::vector<std::string> sources = build.commandFiles;
    for (const TarJob& job : jobs) {
        for (const TarInput& input : job.inputs)
            sources.push_back(input.source);
    }
    for (const std::string& source : sources) {
        if (!build.staging.replaces(name, source)) continue;
        return {EEXIST, source + ": the result would replace it; name another folder with --out"};
    }
    return {};
}

Fault refuseCollisions(const std::vector<TarJob>& jobs, const Build& build) {
    std::set<std::string> names = {kSpecName};
    for (const TarJob& job : jobs) {
        if (names.insert(job.name).second) continue;
        const std::string text = "two files of the update are called \"" + job.name + "\"";
        return build.manifest.located(job.entry, {"", text});
    }
    for (const std::string& name : names) {
        if (Fault fault = refuseOverwriting(name, jobs, build)) return fault;
    }
    return {};
}

// What is in the folder is served.
Fault refuseSecrets(const std::string& out, const std::string& secrets) {
    const std::vector<std::string> keys = findPrivateKeys(out);
    const std::vector<std::string> copies = findKeyCopies(out, secrets);
    if (keys.empty() && copies.empty()) return {};
    const std::string what =
        keys.empty() ? copies.front() + " has a key of " + secrets : keys.front() + " is a private key";
    return {EEXIST, what + ", and the folder will be served; move it, or name another folder"};
}

// The names of the tars' files, and their URLs.
Fault settleNames(std::vector<TarJob>* jobs, Build* build) {
    const UpdateSpecVer1 spec = {};
    const UpdateSpecVer1::Image record = {};
    Manifest& manifest = build->manifest;
    for (TarJob& job : *jobs) {
        const bool isScriptTar = job.entry == kWholeManifest;
        const size_t limit = (isScriptTar ? sizeof spec.script_url : sizeof record.url) - 1;
        std::optional<std::string>* url =
            isScriptTar ? &manifest.scriptUrl : &manifest.steps[job.entry - 1].image->url;
        const Complaint complaint =
            settleUrl(isScriptTar ? "script_url" : "url", build->baseUrl, limit, &job.name, url);
        if (Fault fault = manifest.located(job.entry, complaint)) return fault;
    }
    return refuseCollisions(*jobs, *build);
}

Fault makeTars(const std::vector<TarJob>& jobs, Build* build) {
    for (const TarJob& job : jobs) {
        const bool isScriptTar = job.entry == kWholeManifest;
        if (Fault fault = isScriptTar ? makeScriptTar(job, build) : makeImageTar(job, build)) return fault;
    }
    if (!jobs.empty() && jobs.front().entry == kWholeManifest) return {};
    return build->manifest.located(kWholeManifest, refuseScriptTar(build->manifest));
}

// Nothing that a device refuses is signed, here or elsewhere.
Fault signSpec(const BuildOptions& options, Build* build, std::string* spec) {
    const std::string text = composeSpec(build->manifest);
    if (options.isUnsigned) {
        *spec = specOf(text, "");
        build->result->toSign = hexSha256(text);
        const Fault fault = tryTextOnDevice(text);
        return fault ? fault.of(build->manifest.file) : fault;
    }
    if (Fault fault = signText(text, build->signingKey, spec)) return fault;
    const Fault fault = tryOnDevice(*spec, publicPemOf(build->signingKey));
    return fault ? fault.of(build->manifest.file) : fault;
}

Fault makeSpec(const BuildOptions& options, Build* build) {
    std::string spec;
    if (Fault fault = signSpec(options, build, &spec)) return fault;
    BuildResult* result = build->result;
    const BuiltSpec built = {spec, build->staging.folder(), options.out, options.secrets, build->tars};
    if (Fault fault = checkBuilt(built, build->manifest, build->bar, &result->findings)) return fault;
    result->isRefused = result->findings.count(eError) != 0 && !options.force;
    if (result->isRefused) return {};
    result->files.push_back({kSpecName, spec.size(), "sha256", hexSha256(spec), false});
    return createFile(build->staging.pathOf(kSpecName), spec, kFileMode);
}

// Messages name the final place of a file, which the reader knows, not where it is made.
Fault withoutHiddenFolder(const Fault& fault, const BuildOptions& options, const Build& build) {
    const std::string& hidden = build.staging.folder();
    std::string message = fault.message();
    const size_t at = hidden.empty() ? std::string::npos : message.find(hidden);
    if (at == std::string::npos) return fault;
    message.replace(at, hidden.size(), options.out);
    if (fault.code() == ENOSPC) message += "; free some there, or name another folder with --out";
    return {fault.code(), message};
}

Fault makeUpdate(const BuildOptions& options, Build* build) {
    build->commandFiles = {options.manifest, options.key, options.secrets};
    build->baseUrl = options.baseUrl;
    if (Fault fault = normaliseBaseUrl(&build->baseUrl)) return fault;
    if (Fault fault = readTime(&build->time)) return fault;
    if (Fault fault = readManifest(options.manifest, options.variables, &build->manifest)) return fault;
    if (Fault fault = readFileKey(options.secrets, build)) return fault;
    if (Fault fault = readKey(options, &build->signingKey)) return fault;
    std::vector<TarJob> jobs = planTars(build->manifest);
    uint64_t bytes = 0;
    if (Fault fault = measureInputs(build->manifest, jobs, options.followLinks, &bytes)) return fault;
    build->bar->expect(bytes);
    if (Fault fault = refuseSecrets(options.out, options.secrets)) return fault.of("--out");
    if (Fault fault = build->staging.prepare(options.out)) return fault.of("--out");
    if (Fault fault = settleNames(&jobs, build)) return fault;
    if (Fault fault = makeTars(jobs, build)) return fault;
    if (Fault fault = makeSpec(options, build)) return fault;
    return build->result->isRefused ? Fault() : build->staging.publish();
}

}  // namespace

Fault buildUpdate(const BuildOptions& options, ProgressBar* bar, BuildResult* result) {
    Build build;
    build.bar = bar;
    build.result = result;
    const Fault fault = makeUpdate(options, &build);
    return fault ? withoutHiddenFolder(fault, options, build) : fault;
}
