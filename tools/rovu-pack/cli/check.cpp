// Says what devices will do with a spec, and what its owner will regret.

#include "commands.h"
#include "reports.h"

#include <cstdio>

namespace {

int gatherDevices(CheckCommandOptions* options, std::string* error) {
    if (!options->device.model.empty()) options->check.devices.push_back(options->device);
    for (const std::string& text : options->devices) {
        DeviceKind device;
        if (int rc = parseDeviceKind(text, &device, error); rc != 0) return rc;
        options->check.devices.push_back(device);
    }
    return 0;
}

void print(const CheckResult& result) {
    printFindings(result.findings, stdout);
    if (result.fleet.size() == 1) {
        printPlan(result.fleet.front(), stdout);
    } else if (!result.fleet.empty()) {
        printFleet(result.fleet, stdout);
    }
}

}  // namespace

int runCheck(CheckCommandOptions options) {
    CheckResult result;
    std::string error;
    int rc = gatherDevices(&options, &error);
    if (rc == 0) rc = checkUpdate(options.check, &result, &error);
    if (rc != 0) {
        fprintf(stderr, "rovu-pack check: %s\n", error.c_str());
        return kExitTrouble;
    }
    if (options.json) {
        fputs(checkJson(result).c_str(), stdout);
    } else {
        print(result);
    }
    const size_t counted =
        result.findings.count(eError) + (options.strict ? result.findings.count(eWarning) : 0);
    return counted == 0 ? kExitClean : kExitFindings;
}
