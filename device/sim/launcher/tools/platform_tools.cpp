// readplatform.sh, killall and reboot: the tools of the device itself.

#include "launcher/tools/tool_call.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/sandbox_paths.h"

#include <cstdio>
#include <cstring>

namespace rovusim {

int readPlatform(const ToolCall& call) {
    const std::string what = call.args.size() == 1 ? call.args.front() : "";
    Device device;
    std::string text;
    int rc = loadDevice(call.stateDir, &device);
    if (what == "model") {
        text = device.model;
    } else if (what == "rootfsrev") {
        if (rc == 0) rc = rootfsVersionInUse(call.stateDir, &text);
    } else {
        fprintf(stderr, "usage: %s model|rootfsrev\n", call.tool.c_str());
        return 1;
    }
    if (rc != 0) {
        fprintf(stderr, "%s: %s\n", call.tool.c_str(), strerror(rc));
        return 1;
    }
    printf("%s\n", text.c_str());
    return 0;
}

int killAll(const ToolCall& call) {
    if (!call.args.empty()) return 0;
    fprintf(stderr, "usage: %s NAME...\n", call.tool.c_str());
    return 1;
}

int reboot(const ToolCall& call) {
    const int rc = requestReboot(call.stateDir);
    if (rc != 0) fprintf(stderr, "%s: %s\n", call.tool.c_str(), strerror(rc));
    return rc == 0 ? 0 : 1;
}

}  // namespace rovusim
