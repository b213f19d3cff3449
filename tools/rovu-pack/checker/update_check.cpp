// The order of a check: first the device's own word, then the rules, then files and devices.

#include "update_check.h"

#include "files.h"
#include "rules.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int require(const std::string& path, bool isFolder, std::string* error) {
    struct stat status;
    if (path.empty()) return 0;
    if (access(path.c_str(), R_OK) != 0 || stat(path.c_str(), &status) != 0)
        return fileError(path, errno, error);
    if (S_ISDIR(status.st_mode) == isFolder) return 0;
    return fileError(path, isFolder ? ENOTDIR : EISDIR, error);
}

int requireInputs(const CheckOptions& options, std::string* error) {
    if (int rc = require(options.signatureUse.publicKey, false, error); rc != 0) return rc;
    if (int rc = require(options.files.secrets, false, error); rc != 0) return rc;
    return require(options.files.folder, true, error);
}

}  // namespace

int checkUpdate(const CheckOptions& options, CheckResult* result, std::string* error) {
    SpecFile* file = &result->spec;
    Findings* findings = &result->findings;
    if (int rc = requireInputs(options, error); rc != 0) return rc;
    if (int rc = loadSpecFile(options.spec, options.signatureUse, file, findings, error); rc != 0) return rc;
    checkText(*file, findings);
    const SpecView spec = viewOf(*file);
    if (file->hasTable) {
        checkKeys(spec, findings);
        checkValues(spec, findings);
        checkNames(spec, findings);
        checkDependencies(spec, findings);
        checkParts(spec, findings);
        result->tars = tarsOf(spec);
        if (!options.files.folder.empty()) {
            if (int rc = checkFiles(spec, options.files, &result->tars, findings, error); rc != 0) return rc;
        }
        result->room = roomForAll(spec, result->tars);
        reportRoom(spec, result->room, findings);
    }
    result->fleet = planFleet(spec, options.devices, result->tars, findings);
    findings->sort();
    return 0;
}
