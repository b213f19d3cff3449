#include "command_line.h"

#include "run/log_module.h"
#include "run/settings.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

[[noreturn]] void showUsage() {
    fprintf(
        stderr,
        "Usage: rovu [options] UPGRADE_URL\n\nOptions:\n\t-k key  Use this public key file to verify the FW update spec.\n\t        The default is %s. If key is set to NONE, no signature verification\n\t        will be performed.\n\t-h      Show help.\n\t-v      Verbose.\n\t-D      Dry run only. Do not download, run, flash anything.\n\t-M      Moist run only. Do everything other than switch bootloader and reboot.\n\n",
        keyPath);
    exit(0);
}

}  // namespace

bool parseCommandLine(int argc, char** argv) {
    for (int option = 0; (option = getopt(argc, argv, "k:hvDM")) != -1;) {
        switch (option) {
        case 'k':
            keyPath = optarg;
            break;
        case 'h':
            showUsage();
        case 'v':
            ++verbosity;
            break;
        case 'D':
            dryRun = true;
            break;
        case 'M':
            moistRun = true;
            break;
        default:
            LOG_MSG(LOG_LVL_ERROR, "Bad option \"-%c\". Use -h for help.", optopt);
            return false;
        }
    }
    if (optind >= argc) {
        LOG_MSG(LOG_LVL_ERROR, "Argument missing. Use -h for help.");
        return false;
    }
    upgradeUrl = argv[optind];
    return true;
}
