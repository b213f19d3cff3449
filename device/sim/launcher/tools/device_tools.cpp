// The boot loader's environment (fw_printenv, fw_setenv), and the tools of the device itself (readplatform.sh, killall,
// reboot).

#include "launcher/tools/tool_call.h"
#include "rovu_sim/boot_env.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/sandbox_paths.h"

#include <cstdio>
#include <cstring>

namespace rovusim {
namespace {

int cannotAccess(const ToolCall& call, int error) {
    fprintf(stderr, "%s: cannot access the environment: %s\n", call.tool.c_str(), strerror(error));
    return 1;
}

}  // namespace

int fwPrintenv(const ToolCall& call) {
    BootEnv env;
    if (int rc = readBootEnv(call.stateDir, &env); rc != 0) return cannotAccess(call, rc);
    std::vector<std::string> names = call.args;
    const bool valueOnly = !names.empty() && names.front() == "-n";
    if (valueOnly) names.erase(names.begin());
    if (names.empty()) {
        for (const auto& variable : env)
            printf("%s=%s\n", variable.first.c_str(), variable.second.c_str());
    }
    int exitStatus = 0;
    for (const std::string& name : names) {
        std::string value;
        if (getBootVariable(call.stateDir, name, &value) != 0) {
            fprintf(stderr, "## Error: \"%s\" not defined\n", name.c_str());
            exitStatus = 1;
        } else if (valueOnly) {
            printf("%s\n", value.c_str());
        } else {
            printf("%s=%s\n", name.c_str(), value.c_str());
        }
    }
    return exitStatus;
}

int fwSetenv(const ToolCall& call) {
    if (call.args.empty()) {
        fprintf(stderr, "%s: variable name missing\n", call.tool.c_str());
        return 1;
    }
    // Several words are one value with spaces between, as for the real tool.
    std::string value;
    for (size_t i = 1; i < call.args.size(); ++i)
        value += (i > 1 ? " " : "") + call.args[i];
    if (int rc = setBootVariable(call.stateDir, call.args.front(), value); rc != 0)
        return cannotAccess(call, rc);
    return 0;
}

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
