// The subcommand "build".

#include "builder/build_result.h"
#include "cli/commands.h"
#include "host/printable.h"
#include "host/progress_bar.h"
#include "reports/reports.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace {

std::string shownName(const BuiltFile& file) {
    return (file.isMember ? "  " : "") + printable(file.name);
}

// Columns as wide as their widest cell.
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
                std::to_string(file.size).c_str(), file.digestKind, printable(file.digest).c_str());
    }
}

// A separate function, so that the bar is erased before anything else is printed.
Fault build(const BuildOptions& options, BuildResult* result) {
    ProgressBar bar;
    return buildUpdate(options, &bar, result);
}

void reportFindings(const BuildResult& result) {
    printFindings(result.findings, stderr);
    if (result.findings.count(eError) == 0) return;
    const char* outcome = result.isRefused
                              ? "nothing is made: fix the errors, or give --force to sign nevertheless"
                          : result.toSign.empty() ? "signed in spite of the errors, because of --force"
                                                  : "made in spite of the errors, because of --force";
    fprintf(stderr, "rovu-pack build: %s\n", outcome);
}

void printMade(const BuildResult& result) {
    printReport(result.files, stdout);
    if (result.toSign.empty()) return;
    printf("The spec is not signed. Sign SHA-256 %s, and append the signature: rovu-pack attach.\n",
           result.toSign.c_str());
}

// The check of what was built. `keygen` puts the devices' key beside the private one.
CheckOptions checkOf(const BuildOptions& build) {
    CheckOptions check;
    check.spec = build.out + "/update.lua";
    check.files.folder = build.out;
    check.files.secrets = build.secrets;
    check.signatureUse.isUnsigned = build.isUnsigned;
    const std::string key = build.key.substr(0, build.key.rfind('/') + 1) + kPublicKeyName;
    if (!build.isUnsigned && access(key.c_str(), R_OK) == 0) check.signatureUse.publicKey = key;
    return check;
}

}  // namespace

int runBuild(const BuildCommandOptions& options) {
    BuildResult result;
    warnOfOpenKey(" build", options.build.key);
    if (Fault fault = build(options.build, &result)) return reportFault(" build", fault, options.json);
    if (options.json) {
        fputs(buildJson(options.build, result).c_str(), stdout);
    } else {
        reportFindings(result);
        if (!result.isRefused) printMade(result);
        if (!result.isRefused) printNotRehearsed(checkOf(options.build));
    }
    return result.isRefused ? kExitFindings : kExitClean;
}
