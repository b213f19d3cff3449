// Makes an update out of a manifest.

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

}  // namespace

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
    printReport(made, stdout);
    return kExitClean;
}
