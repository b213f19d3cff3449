#include "rehearsal/rehearsal.h"

#include "host/scratch.h"
#include "rehearsal/comparison.h"

namespace {

Fault rehearseOne(const RehearsalFiles& files, const CheckResult& check, RehearsalRow* row) {
    ScratchFolder folder;
    SimulatedRun run;
    if (Fault fault = folder.make()) return fault;
    const FleetRow& planned = *row->planned;
    if (Fault fault = runOnSimulator(planned, row->activeSet, files, check.tars, folder.path(), &run))
        return fault;
    row->log = run.log;
    row->notes = run.root.notes;
    const std::vector<std::string> found =
        differences(planned.selection, planned.plans[row->activeSet], check.tars, run, files.scriptSeconds);
    // What the plan says of the room tells all the rest.
    if (planned.lacksRoom()) {
        for (const Finding& finding : reportLackOfRoom(viewOf(check.spec), planned).all) {
            if (finding.code == eRoomTmp || finding.code == eRoomLebs)
                row->differences.push_back(finding.why);
        }
        if (found.empty()) row->differences.emplace_back("yet the run ended well: the plan is wrong");
        return {};
    }
    // What a script lacked comes first: it explains the other differences.
    row->differences = missedIn(run.log, nameOfRoot(planned.device.root, files.hostTools));
    row->differences.insert(row->differences.end(), found.begin(), found.end());
    return {};
}

}  // namespace

Fault rehearse(const CheckResult& check, const RehearsalFiles& files,
               const std::function<void(const RehearsalRow&)>& report) {
    for (const FleetRow& planned : check.fleet) {
        for (const uint32_t activeSet : {0U, 1U}) {
            RehearsalRow row = {&planned, activeSet, {}, {}, ""};
            if (Fault fault = rehearseOne(files, check, &row)) return fault;
            report(row);
        }
    }
    return {};
}
