#include "launcher/command_line/commands.h"

#include "launcher/command_line/arguments.h"
#include "launcher/command_line/show.h"
#include "launcher/command_line/usage.h"
#include "launcher/message.h"
#include "rovu_sim/call_log.h"
#include "rovu_sim/device_state.h"

#include <cstdio>
#include <getopt.h>
#include <string>
#include <vector>

namespace rovusim {

int restartCommand(int argc, char** argv) {
    int exitStatus = 0;
    if (!isPlainCall(argc, argv, 1, kRestartUsage, &exitStatus)) return exitStatus;
    std::string why;
    const int rc = restartDevice(argv[1], &why);
    if (rc != 0) complain(std::string(argv[1]) + " does not restart: " + why);
    return exitFor(rc);
}

int showCommand(int argc, char** argv) {
    int exitStatus = 0;
    if (!isPlainCall(argc, argv, 1, kShowUsage, &exitStatus)) return exitStatus;
    return exitFor(showDevice(argv[1]));
}

int callsCommand(int argc, char** argv) {
    const option known[] = {
        {"help", no_argument, nullptr, 'h'},
        {"clear", no_argument, nullptr, 'c'},
        {"last", no_argument, nullptr, 'l'},
        {nullptr, 0, nullptr, 0},
    };
    bool clear = false;
    bool last = false;
    for (int c = getopt_long(argc, argv, "", known, nullptr); c != -1;
         c = getopt_long(argc, argv, "", known, nullptr)) {
        if (c == 'h') return help(kCallsUsage);
        if (c == '?') return misuse(kCallsUsage);
        clear = clear || c == 'c';
        last = last || c == 'l';
    }
    if (optind + 1 != argc || (clear && last)) return misuse(kCallsUsage);
    const std::string state = argv[optind];
    Device device;
    if (int rc = loadDevice(state, &device); rc != 0) return exitFor(cannot("read the device in", state, rc));
    if (clear) return exitFor(clearCalls(state));
    std::vector<Call> calls;
    if (int rc = last ? readCallsOfLastRun(state, &calls) : readCalls(state, &calls); rc != 0)
        return exitFor(cannot("read the call log of", state, rc));
    for (const Call& call : calls) {
        const std::string number = call.number == 0 ? "-" : std::to_string(call.number);
        printf("%4s  %-30s  %s\n", number.c_str(), call.state.c_str(), call.line.c_str());
    }
    return EXIT_SUCCESS;
}

}  // namespace rovusim
