// The subcommand "rehearse".

#include "cli/commands.h"
#include "host/limited_work.h"
#include "host/printable.h"
#include "rehearsal/rehearsal.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace {

constexpr size_t kLogLines = 8;

std::string lastLines(const std::string& text) {
    size_t at = text.size();
    for (size_t lines = 0; lines <= kLogLines && at != 0 && at != std::string::npos; ++lines)
        at = text.rfind('\n', at - 1);
    return at == 0 || at == std::string::npos ? text : text.substr(at + 1);
}

void printIndented(const std::string& text) {
    bool isStart = true;
    for (const char c : text) {
        if (isStart) fputs("      ", stdout);
        fputc(c, stdout);
        isStart = c == '\n';
    }
}

void print(const RehearsalRow& row) {
    const DeviceKind& device = row.planned->device;
    const Plan& plan = row.planned->plans[row.activeSet];
    printf("%s, kernel %s, rootfs %s, from set %u: ", printable(device.model).c_str(),
           printable(device.kernel).c_str(), printable(device.rootfs).c_str(), row.activeSet);
    if (row.differences.empty()) {
        printf("as planned: %s\n", !row.planned->accepts() ? "refuses"
                                   : plan.switches         ? "updates and restarts"
                                                           : "runs, and stays on its set");
    } else {
        printf("FAILS\n");
        for (const std::string& difference : row.differences)
            printf("  %s\n", printable(difference).c_str());
        printf("  the end of the device's log:\n");
        printIndented(printableLines(lastLines(row.log)));
    }
    fflush(stdout);
}

}  // namespace

int runRehearse(RehearseOptions options) {
    CheckResult check;
    if (Fault fault = gatherDevices(&options.check)) return reportFault(" rehearse", fault);
    if (options.check.check.devices.empty())
        return reportFault(" rehearse", {EINVAL, "name the kinds of devices with --device"});
    if (Fault fault = checkUpdate(options.check.check, &check)) return reportFault(" rehearse", fault);
    // A device has no such limits, and a simulated one takes this machine's time and memory.
    if (isBeyondLimits(check.spec.evaluation)) return reportFault(" rehearse", check.spec.evaluation);
    const CheckOptions& given = options.check.check;
    const RehearsalFiles files = {
        given.spec,      given.files.folder, given.files.secrets,   given.signatureUse.publicKey,
        options.program, options.health,     options.scriptSeconds, options.hostTools};
    size_t different = 0;
    const Fault fault = rehearse(check, files, [&different](const RehearsalRow& row) {
        print(row);
        if (!row.differences.empty()) ++different;
    });
    if (fault) return reportFault(" rehearse", fault);
    const auto isUnknown = [](const DeviceKind& device) { return device.root.empty(); };
    if (std::any_of(given.devices.begin(), given.devices.end(), isUnknown))
        fprintf(
            stderr,
            "rovu-pack rehearse: scripts ran on %s; --device ...,root=FILE names a device's own root file system\n",
            nameOfRoot("", options.hostTools).c_str());
    return different == 0 ? kExitClean : kExitFindings;
}
