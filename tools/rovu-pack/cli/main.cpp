// The release engineer's tool: makes and signs updates, and predicts what a device will
// do with them.
//
// Only the command line library throws; exceptions are caught there and here.

#include "cli/command_line.h"
#include "cli/commands.h"
#include "host/leftovers.h"
#include "host/printable.h"

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    noteInterruptions();
    int exitStatus = kExitTrouble;
    try {
        exitStatus = runCommandLine(argc, argv);
    } catch (const std::exception& fault) {
        fprintf(stderr, "rovu-pack: %s\n", printable(fault.what()).c_str());
        return kExitTrouble;
    }
    const bool isPrinted = fflush(stdout) == 0;
    endByNotedSignal();
    if (isPrinted) return exitStatus;
    perror("rovu-pack: standard output");
    return kExitTrouble;
}
