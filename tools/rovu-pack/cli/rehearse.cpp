// The subcommand "rehearse".

#include "cli/commands.h"
#include "host/limited_work.h"
#include "host/printable.h"
#include "rehearsal/rehearsal.h"
#include "reports/reports.h"
#include "spec_view/device_verdict.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <set>

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

// By its model or its versions. A spec that every device refuses, as one with a wrong signature, shows nothing of them.
bool isGoodRefusal(const RehearsalRow& row) {
    return row.planned->device.mustRefuse && row.planned->selection.refusedIn == eStateCheckingDependencies;
}

bool isGood(const RehearsalRow& row) {
    const bool mustRefuse = row.planned->device.mustRefuse;
    return row.differences.empty() && (mustRefuse ? isGoodRefusal(row) : row.planned->accepts());
}

// A run that was as planned.
void printOutcome(const RehearsalRow& row) {
    if (!row.planned->accepts()) {
        printf(isGoodRefusal(row) ? "as planned: refuses: %s\n" : "REFUSES: %s\n",
               printable(withMeaning(row.planned->selection.refusal)).c_str());
    } else if (row.planned->device.mustRefuse) {
        printf("ACCEPTS, and is named as one that refuses\n");
    } else {
        printf("as planned: %s\n", row.planned->plans[row.activeSet].switches ? "updates and restarts"
                                                                              : "runs, and stays on its set");
    }
}

void print(const RehearsalRow& row) {
    const DeviceKind& device = row.planned->device;
    printf("%s, kernel %s, rootfs %s, from set %u: ", printable(device.model).c_str(),
           printable(device.kernel).c_str(), printable(device.rootfs).c_str(), row.activeSet);
    if (row.differences.empty()) {
        printOutcome(row);
    } else {
        printf("FAILS\n");
        for (const std::string& difference : row.differences)
            printf("  %s\n", printable(difference).c_str());
    }
    for (const std::string& note : row.notes)
        printf("  note: %s\n", printable(note).c_str());
    if (!row.differences.empty()) {
        printf("  the end of the device's log:\n");
        printIndented(printableLines(lastLines(row.log)));
    }
    fflush(stdout);
}

// What is certain without a run tells why a run fails.
void printErrors(const Findings& findings) {
    Findings errors;
    std::copy_if(findings.all.begin(), findings.all.end(), std::back_inserter(errors.all),
                 [](const Finding& finding) { return finding.severity == eError; });
    printFindings(errors, stdout);
    fflush(stdout);
}

}  // namespace

int runRehearse(RehearseOptions options) {
    CheckResult check;
    if (Fault fault = gatherDevices(&options.check)) return reportFault(" rehearse", fault);
    if (options.check.check.devices.empty())
        return reportFault(" rehearse", {EINVAL, "name the kinds of devices with --device"});
    if (Fault fault = checkUpdate(options.check.check, &check)) return reportFault(" rehearse", fault);
    // A device has no such limits; a simulated one uses this machine's time and memory.
    if (isBeyondLimits(check.spec.evaluation)) return reportFault(" rehearse", check.spec.evaluation);
    const CheckOptions& given = options.check.check;
    const RehearsalFiles files = {
        given.spec,      given.files.folder, given.files.secrets,   given.signatureUse.publicKey,
        options.program, options.health,     options.scriptSeconds, options.hostTools};
    size_t different = 0;
    printErrors(check.findings);
    const Fault fault = rehearse(check, files, [&different](const RehearsalRow& row) {
        print(row);
        if (!isGood(row)) ++different;
    });
    if (fault) return reportFault(" rehearse", fault);
    std::set<std::string> roots;
    for (const DeviceKind& device : given.devices)
        roots.insert(nameOfRoot(device.root, options.hostTools));
    std::string on;
    for (const std::string& root : roots)
        on += (on.empty() ? "" : ", ") + root;
    const bool isOwn = roots.count(nameOfRoot("", options.hostTools)) == 0;
    printf("Rehearsed on %s%s.\n", printable(on).c_str(),
           isOwn ? "" : "; --device ...,root=FILE names a device's own root file system");
    return different == 0 && check.findings.count(eError) == 0 ? kExitClean : kExitFindings;
}
