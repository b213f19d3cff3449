#include "checker/update_check.h"

#include "archive/tar_archive.h"
#include "checker/rules.h"
#include "checker/server.h"
#include "host/files.h"
#include "signing/key_files.h"
#include "signing/served_keys.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

Fault requireFile(const std::string& path) {
    uint64_t size = 0;
    if (path.empty()) return {};
    if (access(path.c_str(), R_OK) != 0) return fileFault(path, errno);
    return requireRegularFile(path, &size);
}

Fault requireFolder(const std::string& path) {
    struct stat status;
    if (path.empty()) return {};
    if (access(path.c_str(), R_OK) != 0 || stat(path.c_str(), &status) != 0) return fileFault(path, errno);
    return S_ISDIR(status.st_mode) ? Fault() : fileFault(path, ENOTDIR);
}

Fault requireKey(const std::string& path) {
    PublicKey key;
    return path.empty() ? Fault() : readPublicKey(path, &key);
}

Fault requireInputs(const CheckOptions& options) {
    if (Fault fault = requireKey(options.signatureUse.publicKey)) return fault.of("--pub");
    if (Fault fault = requireFile(options.files.secrets)) return fault.of("--secrets");
    Fault fault = requireFolder(options.files.folder);
    return fault ? fault.of("--files") : fault;
}

Findings applyRules(const SpecView& spec) {
    Findings findings;
    for (const auto rule :
         {checkKeys, checkValues, checkUrls, checkNames, checkDependencies, checkParts, checkBootSet})
        findings.append(rule(spec));
    return findings;
}

// The tars with what their files are, if those are to be looked at, else as the spec names them.
Fault gatherTars(const SpecView& spec, const FileOptions& options, ServedFiles* files) {
    if (!options.folder.empty()) return checkServedFiles(spec, options, files);
    files->tars = tarsOf(spec);
    return {};
}

Findings reportServedKeys(const SpecFile& spec, const FileOptions& files) {
    Findings findings;
    if (files.folder.empty()) return findings;
    for (const std::string& path : findPrivateKeys(files.folder))
        findings.add(ePrivateKeyServed, spec.at(""),
                     path + " is a private key, and whoever can fetch it signs updates.");
    if (files.secrets.empty()) return findings;
    for (const std::string& path : findKeyCopies(files.folder, files.secrets))
        findings.add(eSecretServed, spec.at(""),
                     path + " has a key of " + files.secrets +
                         ", and whoever can fetch it decrypts updates.");
    return findings;
}

// Each of the devices gets a verdict of its own instead of the general note.
bool isRoomKnown(const std::vector<DeviceKind>& devices) {
    return !devices.empty() && std::all_of(devices.begin(), devices.end(), [](const DeviceKind& device) {
        return device.room.tmp.has_value();
    });
}

// Files that are often given instead of the spec.
Fault refuseOther(const std::string& path) {
    uint64_t size = 0;
    std::vector<TarMember> members;
    std::string compression;
    if (requireRegularFile(path, &size)) return {};  // which the spec's reader says
    static_cast<void>(listTar(path, &members, &compression));
    if (members.empty()) return {};
    return {EINVAL, path + ": this is a tar of " + std::to_string(members.size()) +
                        " members; give the spec that names it"};
}

}  // namespace

Fault checkUpdate(const CheckOptions& options, CheckResult* result) {
    if (Fault fault = requireInputs(options)) return fault;
    if (Fault fault = refuseOther(options.spec)) return fault;
    if (Fault fault = loadSpecFile(options.spec, &result->spec)) return fault;
    return checkLoadedSpec(options, result);
}

Fault checkLoadedSpec(const CheckOptions& options, CheckResult* result) {
    DeviceVerdict verdict;
    if (Fault fault = judge(options.signatureUse, &result->spec, &verdict)) return fault;
    Findings* findings = &result->findings;
    findings->append(verdict.findings);
    findings->append(checkText(result->spec, options.signatureUse));

    findings->append(reportServedKeys(result->spec, options.files));

    const SpecView spec = viewOf(result->spec);
    ServedFiles files;
    if (result->spec.hasTable) {
        findings->append(applyRules(spec));
        if (Fault fault = gatherTars(spec, options.files, &files)) return fault;
        findings->append(files.findings);
        if (options.fetches) {
            if (Fault fault = checkServer(spec, files.tars, findings)) return fault;
        }
        result->room = roomForAll(spec, files.tars);
        if (!isRoomKnown(options.devices)) findings->append(reportRoom(spec, result->room));
    }
    result->fleet = planFleet(spec, verdict.refusedIn, options.devices, files.tars);
    if (verdict.refusedIn == eStateInvalid) findings->append(reportRefusals(spec, result->fleet));
    findings->append(reportBoots(spec, result->fleet));
    findings->append(reportVersions(spec, result->fleet));
    findings->append(reportModels(spec, result->fleet));
    findings->append(reportProcessors(spec, files.tars, result->fleet));
    for (const FleetRow& row : result->fleet)
        findings->append(reportLackOfRoom(spec, row));
    result->tars = std::move(files.tars);
    findings->sort();
    return {};
}
