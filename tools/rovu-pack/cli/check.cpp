// The subcommand "check".

#include "commands.h"
#include "reports.h"

#include <cstdio>

namespace {

void print(const CheckResult& result) {
    printFindings(result.findings, stdout);
    printCounts(result.findings, stdout);
    if (result.fleet.size() == 1) {
        printPlan(result.fleet.front(), stdout);
    } else if (!result.fleet.empty()) {
        printFleet(result.fleet, stdout);
    }
}

}  // namespace

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
        print(result);
    }
    const size_t counted =
        result.findings.count(eError) + (options.strict ? result.findings.count(eWarning) : 0);
    return counted == 0 ? kExitClean : kExitFindings;
}
