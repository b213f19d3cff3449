#include "builder/update_builder.h"

#include "archive/output_file.h"
#include "archive/tar_archive.h"
#include "builder/build_result.h"
#include "builder/manifest.h"
#include "builder/spec_writer.h"
#include "builder/staging.h"
#include "builder/tar_plan.h"
#include "host/digests.h"
#include "host/files.h"
#include "signing/key_files.h"
#include "signing/served_keys.h"
#include "signing/signing.h"
#include "spec_view/device_verdict.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
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
                            "\" is not a number of seconds that a tar can hold; give what "
                            "\"git log -1 --format=%ct\" prints, or unset it"};
    }
    *time = static_cast<time_t>(seconds);
    return {};
}

Fault readFileKey(const std::string& secrets, Build* build) {
    const Manifest& manifest = build->manifest;
    const double offset = manifest.view().keyOffset();
    const bool isEncrypted = offset >= 0;
    if (!isEncrypted && secrets.empty()) return {};
    if (isEncrypted && !secrets.empty()) {
        Fault fault = readSecret(secrets, static_cast<int64_t>(offset), &build->fileKey);
        return fault ? fault.of("--secrets") : fault;
    }
    const char* text = isEncrypted ? "asks for encryption, for which --secrets must name the key file"
                                   : "is missing, but --secrets was given: nothing would be encrypted";
    return manifest.located("encr_key_offset", text);
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

// In one pass over the files.
Fault packTar(const TarJob& job, Build* build, PackedTar* packed) {
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
        if (input.executable) return;
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

Fault makeTar(const TarJob& job, Build* build) {
    Manifest* manifest = &build->manifest;
    const std::string& prefix = job.keyPrefix;
    PackedTar tar;
    if (Fault fault = packTar(job, build, &tar)) return fault;
    if (!job.isOfScripts()) {
        if (Fault fault = settleText(prefix + "image_md5", tar.imageMd5, manifest)) return fault;
        if (Fault fault = settleSize(prefix + "imsize", tar.imageSize, manifest)) return fault;
        build->result->files.push_back({job.image, tar.imageSize, "md5", tar.imageMd5, true});
    }
    if (Fault fault = settleText(prefix + "hash", tar.sha256, manifest)) return fault;
    return settleSize(prefix + "dlsize", tar.size, manifest);
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

Fault refuseNames(const std::vector<TarJob>& jobs, const Build& build) {
    std::set<std::string> names = {kSpecName};
    for (const TarJob& job : jobs) {
        const std::string key = job.keyPrefix + "url";
        if (job.name.empty())
            return build.manifest.located(
                key, "is not a file name after " + build.baseUrl +
                         "/, for which the update is built; give one, or another --base-url");
        if (!names.insert(job.name).second)
            return build.manifest.located(key, "two files of the update are called \"" + job.name +
                                                   "\"; rename one");
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
Fault settleUrls(std::vector<TarJob>* jobs, Build* build) {
    for (TarJob& job : *jobs) {
        if (Fault fault = settleUrl(build->baseUrl, &job, &build->manifest)) return fault;
    }
    const bool hasScriptTar = !jobs->empty() && jobs->front().isOfScripts();
    return hasScriptTar ? Fault() : settleNoScriptTar(&build->manifest);
}

Fault check(const BuiltSpec& spec, const BuildOptions& options, Build* build) {
    BuildResult* result = build->result;
    if (Fault fault = checkBuilt(spec, build->manifest, build->bar, &result->findings)) return fault;
    result->isRefused = result->findings.count(eError) != 0 && !options.force;
    return {};
}

// Before anything is packed: what can be said of the spec without its files.
Fault checkPlanned(const std::vector<TarJob>& jobs, const BuildOptions& options, Build* build) {
    const std::string text = composeSpec(withoutFiles(build->manifest, jobs));
    if (Fault fault = check({text, "", "", "", build->tars}, options, build)) return fault;
    if (Fault fault = refuseFound(build->manifest, build->result->findings)) return fault;
    return refuseUnusedFiles(build->manifest);
}

// Nothing that a device refuses is signed, here or elsewhere.
Fault signSpec(const BuildOptions& options, Build* build, std::string* spec) {
    const std::string text = composeSpec(build->manifest);
    if (options.isUnsigned) {
        *spec = specOf(text, "");
        build->result->toSign = hexSha256(text);
        const Fault fault = tryTextOnDevice(text);
        return fault ? fault.of(options.manifest) : fault;
    }
    if (Fault fault = signText(text, build->signingKey, spec)) return fault;
    const Fault fault = tryOnDevice(*spec, publicPemOf(build->signingKey));
    return fault ? fault.of(options.manifest) : fault;
}

Fault makeSpec(const BuildOptions& options, Build* build) {
    std::string spec;
    if (Fault fault = signSpec(options, build, &spec)) return fault;
    const BuiltSpec built = {spec, build->staging.folder(), options.out, options.secrets, build->tars};
    if (Fault fault = check(built, options, build)) return fault;
    if (build->result->isRefused) return {};
    build->result->files.push_back({kSpecName, spec.size(), "sha256", hexSha256(spec), false});
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
    std::vector<TarJob> jobs = planTars(build->manifest);
    if (Fault fault = settleUrls(&jobs, build)) return fault;
    if (Fault fault = checkPlanned(jobs, options, build)) return fault;
    if (build->result->isRefused) return {};
    if (Fault fault = readFileKey(options.secrets, build)) return fault;
    if (Fault fault = readKey(options, &build->signingKey)) return fault;
    uint64_t bytes = 0;
    if (Fault fault = measureInputs(build->manifest, jobs, options.followLinks, &bytes)) return fault;
    build->bar->expect(bytes);
    if (Fault fault = refuseSecrets(options.out, options.secrets)) return fault.of("--out");
    if (Fault fault = build->staging.prepare(options.out)) return fault.of("--out");
    if (Fault fault = refuseNames(jobs, *build)) return fault;
    for (const TarJob& job : jobs) {
        if (Fault fault = makeTar(job, build)) return fault;
    }
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
