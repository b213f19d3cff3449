// The release engineer's tool: makes updates, signs them, and says beforehand what a device will
// do with one.
//
// The library for the command line throws, the rest does not; nothing is caught but here.

#include "build_command.h"
#include "check_command.h"
#include "exit_status.h"
#include "keygen_command.h"
#include "secret_command.h"
#include "sign_command.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

namespace {

int parseAndRun(int argc, char** argv) {
    int exitStatus = kExitClean;
    CLI::App app("Makes updates for rovu, signs them, and says beforehand what a device will do with one.",
                 "rovu-pack");
    app.set_version_flag("--version", "rovu-pack " ROVU_PACK_VERSION);
    app.require_subcommand(1);
    addKeygenCommand(&app, &exitStatus);
    addSecretCommand(&app, &exitStatus);
    addBuildCommand(&app, &exitStatus);
    addSignCommand(&app, &exitStatus);
    addCheckCommand(&app, &exitStatus);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& usage) {
        return app.exit(usage) == 0 ? kExitClean : kExitTrouble;
    }
    return exitStatus;
}

}  // namespace

int main(int argc, char** argv) {
    int exitStatus = kExitTrouble;
    try {
        exitStatus = parseAndRun(argc, argv);
    } catch (const std::exception& fault) {
        fprintf(stderr, "rovu-pack: %s\n", fault.what());
        return kExitTrouble;
    }
    if (fflush(stdout) == 0) return exitStatus;
    perror("rovu-pack: standard output");
    return kExitTrouble;
}
