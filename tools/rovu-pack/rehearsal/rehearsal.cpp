#include "rehearsal/rehearsal.h"

#include "host/scratch.h"
#include "rehearsal/comparison.h"

namespace {

Fault rehearseOne(const RehearsalFiles& files, const Tars& tars, RehearsalRow* row) {
    ScratchFolder folder;
    SimulatedRun run;
    if (Fault fault = folder.make()) return fault;
    const FleetRow& planned = *row->planned;
    if (Fault fault = runOnSimulator(planned.device, row->activeSet, files, tars, folder.path(), &run))
        return fault;
    // What a script missed comes first: it tells why the rest differs.
    row->differences = missedIn(run.log, nameOfRoot(planned.device.root, files.hostTools));
    const std::vector<std::string> found =
        differences(planned.selection, planned.plans[row->activeSet], tars, run);
    row->differences.insert(row->differences.end(), found.begin(), found.end());
    row->log = run.log;
    return {};
}

}  // namespace

Fault rehearse(const CheckResult& check, const RehearsalFiles& files,
               const std::function<void(const RehearsalRow&)>& report) {
    for (const FleetRow& planned : check.fleet) {
        for (const uint32_t activeSet : {0U, 1U}) {
            RehearsalRow row = {&planned, activeSet, {}, ""};
            if (Fault fault = rehearseOne(files, check.tars, &row)) return fault;
            report(row);
        }
    }
    return {};
}
