// Makes an update out of a manifest.

#include "build_command.h"

#include "build_report.h"
#include "exit_status.h"
#include "progress_bar.h"

#include <cstdio>
#include <vector>

int runBuild(const BuildOptions& options) {
    std::vector<BuiltFile> made;
    std::string error;
    int rc = 0;
    {
        ProgressBar bar;  // gone from the screen before anything else is printed
        rc = buildUpdate(options, &bar, &made, &error);
    }
    if (rc != 0) {
        fprintf(stderr, "rovu-pack build: %s\n", error.c_str());
        return kExitTrouble;
    }
    printBuildReport(made, stdout);
    return kExitClean;
}
