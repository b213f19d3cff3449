// The subcommand "build".

#include "commands.h"
#include "progress_bar.h"

#include <algorithm>
#include <cstdio>

namespace {

std::string shownName(const BuiltFile& file) {
    return (file.isMember ? "  " : "") + file.name;
}

// Columns as wide as what stands in them.
void printReport(const std::vector<BuiltFile>& made, FILE* out) {
    int nameWidth = 4;
    int sizeWidth = 5;
    for (const BuiltFile& file : made) {
        nameWidth = std::max(nameWidth, static_cast<int>(shownName(file).size()));
        sizeWidth = std::max(sizeWidth, static_cast<int>(std::to_string(file.size).size()));
    }
    fprintf(out, "%-*s  %*s  digest\n", nameWidth, "file", sizeWidth, "bytes");
    for (const BuiltFile& file : made) {
        fprintf(out, "%-*s  %*s  %-6s %s\n", nameWidth, shownName(file).c_str(), sizeWidth,
                std::to_string(file.size).c_str(), file.digestKind, file.digest.c_str());
    }
}

// Its own function, so that the bar is gone from the screen before anything else is printed.
Fault build(const BuildOptions& options, std::vector<BuiltFile>* made) {
    ProgressBar bar;
    return buildUpdate(options, &bar, made);
}

}  // namespace

int runBuild(const BuildOptions& options) {
    std::vector<BuiltFile> made;
    if (Fault fault = build(options, &made)) return reportFault("build", fault);
    printReport(made, stdout);
    return kExitClean;
}
