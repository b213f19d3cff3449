// rovu-sim init: makes a device.

#include "launcher/command_line/arguments.h"
#include "launcher/command_line/commands.h"
#include "launcher/command_line/usage.h"
#include "launcher/message.h"
#include "launcher/run/device_run.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/text_files.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <getopt.h>
#include <string>
#include <system_error>
#include <vector>

namespace rovusim {
namespace {

struct InitArguments {
    std::string stateDir;
    DeviceOptions device;
    std::string key;
    std::string preshared;
};

bool parseLebs(const char* text, uint32_t* lebs) {
    constexpr unsigned long kMostLebs = 1UL << 20;
    char* end = nullptr;
    const unsigned long value = strtoul(text, &end, 10);
    if (end == text || *end != '\0' || value == 0 || value > kMostLebs) return false;
    *lebs = static_cast<uint32_t>(value);
    return true;
}

const option kOptions[] = {
    {"help", no_argument, nullptr, 'h'},
    {"model", required_argument, nullptr, 'm'},
    {"kernel", required_argument, nullptr, 'k'},
    {"rootfs", required_argument, nullptr, 'r'},
    {"lebs", required_argument, nullptr, 'l'},
    {"tmp", required_argument, nullptr, 't'},
    {"root", required_argument, nullptr, 'o'},
    {"host-tools", no_argument, nullptr, 'H'},
    {"key", required_argument, nullptr, 'p'},
    {"preshared", required_argument, nullptr, 's'},
    {nullptr, 0, nullptr, 0},
};

// Applies one option; -1 if it is valid, else an exit status.
int applyInitOption(int c, const char* value, InitArguments* arguments) {
    switch (c) {
    case 'h':
        return help(kInitUsage);
    case 'm':
        arguments->device.model = value;
        return -1;
    case 'k':
        arguments->device.kernelRelease = value;
        return -1;
    case 'r':
        arguments->device.rootfsVersion = value;
        return -1;
    case 'p':
        arguments->key = value;
        return -1;
    case 's':
        arguments->preshared = value;
        return -1;
    case 'o':
        arguments->device.root = value;
        return -1;
    case 'H':
        arguments->device.root = kHostRoot;
        return -1;
    case 'l':
        if (parseLebs(value, &arguments->device.totalLebs)) return -1;
        return misuse(kInitUsage);
    case 't':
        if (parseSize(value, &arguments->device.tmpBytes)) return -1;
        return misuse(kInitUsage);
    default:
        return misuse(kInitUsage);
    }
}

// Parses the options of `init`; -1 if they are valid, else an exit status.
int parseInit(int argc, char** argv, InitArguments* arguments) {
    for (int c = getopt_long(argc, argv, "", kOptions, nullptr); c != -1;
         c = getopt_long(argc, argv, "", kOptions, nullptr)) {
        if (int exitStatus = applyInitOption(c, optarg, arguments); exitStatus >= 0) return exitStatus;
    }
    if (optind + 1 != argc) return misuse(kInitUsage);
    arguments->stateDir = argv[optind];
    return -1;
}

struct DeviceFile {
    const char* option;
    std::string source;  // empty: not given
    const char* pathOnDevice;
    std::string bytes;
};

int readSources(std::vector<DeviceFile>* files) {
    for (DeviceFile& file : *files) {
        if (file.source.empty()) continue;
        if (int rc = readTextFile(file.source, &file.bytes); rc != 0)
            return cannot(std::string("read the file of ") + file.option + ",", file.source, rc);
    }
    return 0;
}

int putFiles(const std::string& stateDir, const std::vector<DeviceFile>& files) {
    for (const DeviceFile& file : files) {
        if (file.source.empty()) continue;
        if (int rc = putDeviceFile(stateDir, file.pathOnDevice, file.bytes); rc != 0)
            return cannot("write", file.pathOnDevice, rc);
    }
    return 0;
}

int resolveRoot(std::string* root) {
    char resolved[PATH_MAX];
    if (root->empty() || *root == kHostRoot) return 0;
    if (realpath(root->c_str(), resolved) == nullptr) return cannot("use the root file system", *root, errno);
    *root = resolved;
    std::error_code error;
    const std::filesystem::file_type kind = std::filesystem::status(resolved, error).type();
    if (kind == std::filesystem::file_type::directory || kind == std::filesystem::file_type::regular)
        return 0;
    complain("--root, " + *root + ": neither a folder nor a regular file");
    return EINVAL;
}

// All that the options name is read before anything is made, and a device that is not whole does not stay: the next
// attempt would find it and refuse.
int makeDevice(const InitArguments& arguments) {
    const std::string& state = arguments.stateDir;
    std::vector<DeviceFile> files = {
        {"--key", arguments.key, "/etc/ssh/rovu_pub.pem", ""},
        {"--preshared", arguments.preshared, "/app0/secrets/rovu/preshared", ""}};
    if (int rc = readSources(&files); rc != 0) return rc;
    DeviceOptions options = arguments.device;
    if (int rc = resolveRoot(&options.root); rc != 0) return rc;
    const int rc = createDevice(state, options);
    if (rc == EEXIST)
        complain(state + " already exists, and is unchanged; name another directory, or remove it first");
    if (rc == ENOSPC)
        complain("no room for the device's volumes: too few erase blocks (--lebs), or a full disk");
    if (rc != 0 && rc != EEXIST && rc != ENOSPC) cannot("make the device", state, rc);
    if (rc != 0) return rc;
    int failed = putFiles(state, files);
    if (failed == 0) failed = prepareRoot(state);
    if (failed != 0) removeDevice(state);
    return failed;
}

}  // namespace

int initCommand(int argc, char** argv) {
    InitArguments arguments;
    if (int exitStatus = parseInit(argc, argv, &arguments); exitStatus >= 0) return exitStatus;
    return exitFor(makeDevice(arguments));
}

}  // namespace rovusim
