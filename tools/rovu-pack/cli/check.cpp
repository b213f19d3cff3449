// The subcommand "check".
//
// The subcommand "inspect".

#include "cli/commands.h"
#include "host/printable.h"
#include "reports/inspection.h"
#include "reports/reports.h"
#include "rovu_sim/shell_words.h"

#include <cstdio>
#include <utility>

namespace {

void print(const CheckResult& result, bool isVerbose) {
    printFindings(result.findings, stdout);
    printCounts(result.findings, stdout);
    if (!result.fleet.empty()) printFleet(result.fleet, stdout);
    for (const FleetRow& row : result.fleet) {
        if (isVerbose || result.fleet.size() == 1) printChoices(row, stdout);
        if (isVerbose) printPlan(row, stdout);
    }
}

}  // namespace

void printNotRehearsed(const CheckOptions& check) {
    std::string options = rovusim::quoteForShell(check.spec);
    const std::pair<const char*, const std::string&> files[] = {{"--files", check.files.folder},
                                                                {"--pub", check.signatureUse.publicKey},
                                                                {"--secrets", check.files.secrets}};
    for (const auto& [option, path] : files) {
        if (!path.empty()) options += std::string(" ") + option + " " + rovusim::quoteForShell(path);
    }
    if (check.signatureUse.isUnsigned) options += " --unsigned";
    printf("Not rehearsed: rovu-pack rehearse %s --device KIND,root=ROOTFS\n", printable(options).c_str());
}

Fault gatherDevices(CheckCommandOptions* options) {
    if (!options->device.model.empty()) options->check.devices.push_back(options->device);
    for (const std::string& text : options->devices) {
        DeviceKind device;
        if (Fault fault = parseDeviceKind(text, &device)) return fault;
        options->check.devices.push_back(device);
    }
    return {};
}

int runCheck(CheckCommandOptions options) {
    CheckResult result;
    Fault fault = gatherDevices(&options);
    if (!fault) fault = checkUpdate(options.check, &result);
    if (fault) return reportFault(" check", fault, options.json);
    if (options.json) {
        fputs(checkJson(result).c_str(), stdout);
    } else {
        print(result, options.verbose);
        if (result.findings.count(eError) == 0 && !options.check.files.folder.empty())
            printNotRehearsed(options.check);
    }
    const size_t counted =
        result.findings.count(eError) + (options.strict ? result.findings.count(eWarning) : 0);
    return counted == 0 ? kExitClean : kExitFindings;
}

int runInspect(const InspectOptions& options) {
    Inspection inspection;
    if (Fault fault = inspectFile(options.spec, options.publicKeys, &inspection))
        return reportFault(" inspect", fault, options.json);
    const std::string report = options.json ? inspectionJson(inspection) : inspectionText(inspection);
    fputs(report.c_str(), stdout);
    return isSuspect(inspection) ? kExitFindings : kExitClean;
}
