// The release engineer's tool: makes updates, signs them, and says beforehand what a device will
// do with one.
//
// The library for the command line throws, the rest does not; nothing is caught but there and here.

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
