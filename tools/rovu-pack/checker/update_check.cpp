#include "update_check.h"

#include "files.h"
#include "key_files.h"
#include "rules.h"
#include "served_keys.h"

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

Findings reportServedKeys(const SpecFile& spec, const std::string& folder) {
    Findings findings;
    if (folder.empty()) return findings;
    for (const std::string& path : findPrivateKeys(folder))
        findings.add(ePrivateKeyServed, spec.at(""),
                     path + " is a private key, and whoever can fetch it signs updates.");
    return findings;
}

// Each of the devices gets a verdict of its own instead of the general note.
bool isRoomKnown(const std::vector<DeviceKind>& devices) {
    return !devices.empty() && std::all_of(devices.begin(), devices.end(), [](const DeviceKind& device) {
        return device.room.tmp.has_value();
    });
}

}  // namespace

Fault checkUpdate(const CheckOptions& options, CheckResult* result) {
    if (Fault fault = requireInputs(options)) return fault;
    if (Fault fault = loadSpecFile(options.spec, &result->spec)) return fault;
    return checkLoadedSpec(options, result);
}

Fault checkLoadedSpec(const CheckOptions& options, CheckResult* result) {
    DeviceVerdict verdict;
    if (Fault fault = judge(options.signatureUse, &result->spec, &verdict)) return fault;
    Findings* findings = &result->findings;
    findings->append(verdict.findings);
    findings->append(checkText(result->spec, options.signatureUse));

    findings->append(reportServedKeys(result->spec, options.files.folder));

    const SpecView spec = viewOf(result->spec);
    ServedFiles files;
    if (result->spec.hasTable) {
        findings->append(applyRules(spec));
        if (Fault fault = gatherTars(spec, options.files, &files)) return fault;
        findings->append(files.findings);
        result->room = roomForAll(spec, files.tars);
        if (!isRoomKnown(options.devices)) findings->append(reportRoom(spec, result->room));
    }
    result->fleet = planFleet(spec, verdict.refusedIn, options.devices, files.tars);
    result->tars = std::move(files.tars);
    if (verdict.refusedIn == eStateInvalid) findings->append(reportRefusals(spec, result->fleet));
    findings->append(reportBoots(spec, result->fleet));
    findings->append(reportDowngrades(spec, result->fleet));
    findings->append(reportLackOfRoom(spec, result->fleet));
    findings->sort();
    return {};
}
