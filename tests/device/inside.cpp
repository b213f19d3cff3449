#include "inside.h"

#include "rovu_sim/call_log.h"
#include "rovu_sim/fault_rules.h"
#include "rovu_sim/volume_store.h"
#include "util/command.h"

#include <filesystem>
#include <sys/stat.h>

InDevice::InDevice() {
    rovusim::loadDevice(kState, &device_);
    mkdir(kWorkDir, 0770);
    // A test before this one may have left them removed.
    makeVolume("k1", "static");
    makeVolume("k1_data", "dynamic");
    failCalls("");
}

InDevice::~InDevice() {
    failCalls("");
    rovusim::saveDevice(kState, device_);
    setenv("PATH", path_.c_str(), 1);
    std::filesystem::remove_all(kWorkDir);
}

void InDevice::failCalls(const std::string& rule) {
    rovusim::clearCalls(kState);
    const Strings rules(rule.empty() ? 0 : 1, rule);
    rovusim::storeFaultRules(kState, rules);
}

int InDevice::killed() {
    int status = 0;
    runCommand("sh -c 'kill -9 $$'", nullptr, 0, &status, nullptr);
    return status;
}

std::string InDevice::tools() const {
    std::vector<rovusim::Call> calls;
    rovusim::readCalls(kState, &calls);
    std::string tools;
    for (const rovusim::Call& call : calls)
        tools += call.tool + " ";
    return tools;
}

std::string InDevice::messages() {
    const std::string lines = log_.lines(), newLines = lines.substr(seen_);
    seen_ = lines.size();
    return withoutLogHeads(newLines);
}

void InDevice::describe(const std::string& model, const std::string& rootfs) {
    rovusim::Device changed = device_;
    changed.model = model;
    changed.rootfsVersion = rootfs;
    rovusim::saveDevice(kState, changed);
    rovusim::writeVolume(kState, "k0_root", "bytes that name no version");
}

void InDevice::replaceTool(const std::string& name, const std::string& script) {
    const std::string path = std::string(kWorkDir) + "/tools/" + name;
    writeWholeFile(path, "#!/bin/sh\n" + script);
    chmod(path.c_str(), 0755);
    setenv("PATH", (std::string(kWorkDir) + "/tools:" + path_).c_str(), 1);
}

std::string InDevice::volume(const std::string& name) const {
    std::string bytes;
    return rovusim::readVolume(kState, name, &bytes) == 0 ? bytes : "(none)";
}

void InDevice::makeVolume(const char* name, const char* type) {
    if (volume(name) != "(none)") return;
    runCommandF(nullptr, 0, nullptr, nullptr, "ubimkvol /dev/ubi0 -N %s -t %s -s 200000 >&-", name, type);
}

int main(int argc, char** argv) {
    if (access(rovusim::kToolInside, X_OK) != 0) {
        fprintf(stderr, "Run this inside a simulated device: rovu-sim run STATE --no-wait -- %s 8<STATE\n",
                argv[0]);
        return 1;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
