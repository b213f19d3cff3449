// The subcommand "inspect".

#include "commands.h"
#include "inspection.h"

#include <cstdio>

int runInspect(const InspectOptions& options) {
    Inspection inspection;
    if (Fault fault = inspectFile(options.spec, options.publicKeys, &inspection))
        return reportFault(" inspect", fault, options.json);
    const std::string report = options.json ? inspectionJson(inspection) : inspectionText(inspection);
    fputs(report.c_str(), stdout);
    return isSuspect(inspection) ? kExitFindings : kExitClean;
}
