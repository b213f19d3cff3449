// rovu-sim: simulates a device on a workstation.

#include "launcher/command_line/commands.h"
#include "launcher/command_line/usage.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Subcommand {
    const char* name;
    int (*run)(int argc, char** argv);
};
constexpr Subcommand kSubcommands[] = {
    {"init", rovusim::initCommand}, {"run", rovusim::runCommand},     {"restart", rovusim::restartCommand},
    {"show", rovusim::showCommand}, {"calls", rovusim::callsCommand}, {"volume", rovusim::volumeCommand},
};

}  // namespace

int main(int argc, char** argv) {
    const char* name = argc > 1 ? argv[1] : "";
    if (std::strcmp(name, "--help") == 0 || std::strcmp(name, "-h") == 0) {
        std::fputs(rovusim::kUsage, stdout);
        return EXIT_SUCCESS;
    }
    if (std::strcmp(name, "--version") == 0) {
        std::puts("rovu-sim " ROVU_SIM_VERSION);
        return EXIT_SUCCESS;
    }
    for (const Subcommand& subcommand : kSubcommands) {
        if (std::strcmp(name, subcommand.name) == 0) return subcommand.run(argc - 1, argv + 1);
    }
    std::fputs(rovusim::kUsage, stderr);
    return 2;
}
