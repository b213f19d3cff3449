// The launcher's subcommands: each reads its arguments, does its work and gives the exit status.

#include "launcher/commands.h"

#include "launcher/device_run.h"
#include "launcher/init_process.h"
#include "launcher/message.h"
#include "launcher/show.h"
#include "launcher/usage.h"
#include "rovu_sim/call_log.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/fault_rules.h"
#include "rovu_sim/state_lock.h"
#include "rovu_sim/text_files.h"
#include "rovu_sim/volume_store.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <getopt.h>
#include <string>
#include <unistd.h>

namespace rovusim {
namespace {

constexpr int kExitUsage = 2;

int help(const char* text) {
    fputs(text, stdout);
    return EXIT_SUCCESS;
}

int misuse(const char* text) {
    fputs(text, stderr);
    return kExitUsage;
}

int exitFor(int rc) {
    return rc == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

// For subcommands whose only option is --help: true if the arguments are `words` plain ones.
bool isPlainCall(int argc, char** argv, int words, const char* usage, int* exitStatus) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        *exitStatus = help(usage);
        return false;
    }
    if (argc == words + 1 && argv[1][0] != '-') return true;
    *exitStatus = misuse(usage);
    return false;
}

int copyIntoDevice(const std::string& stateDir, const std::string& file, const char* pathOnDevice) {
    if (file.empty()) return 0;
    std::string bytes;
    if (int rc = readTextFile(file, &bytes); rc != 0) return cannot("read", file, rc);
    if (int rc = putDeviceFile(stateDir, pathOnDevice, bytes); rc != 0)
        return cannot("write", pathOnDevice, rc);
    return 0;
}

bool parseLebs(const char* text, uint32_t* lebs) {
    constexpr unsigned long kMostLebs = 1UL << 20;
    char* end = nullptr;
    const unsigned long value = strtoul(text, &end, 10);
    if (end == text || *end != '\0' || value == 0 || value > kMostLebs) return false;
    *lebs = static_cast<uint32_t>(value);
    return true;
}

struct InitArguments {
    std::string stateDir;
    DeviceOptions device;
    std::string key;
    std::string preshared;
};

int makeDevice(const InitArguments& arguments) {
    const std::string& state = arguments.stateDir;
    const int rc = createDevice(state, arguments.device);
    if (rc == EEXIST) complain(state + " is there already; it is left as it is");
    if (rc == ENOSPC) complain("that many erase blocks do not hold the device's volumes");
    if (rc != 0 && rc != EEXIST && rc != ENOSPC) cannot("make the device", state, rc);
    if (rc != 0) return rc;
    if (int failed = copyIntoDevice(state, arguments.key, "/etc/ssh/rovu_pub.pem"); failed != 0)
        return failed;
    return copyIntoDevice(state, arguments.preshared, "/app0/secrets/rovu/preshared");
}

int readAll(const char* path, std::string* bytes) {
    return readTextFile(strcmp(path, "-") == 0 ? "/dev/stdin" : path, bytes);
}

int putVolume(const std::string& state, const std::string& name, const char* path) {
    std::string bytes;
    if (int rc = readAll(path, &bytes); rc != 0) return cannot("read", path, rc);
    const int rc = writeVolume(state, name, bytes);
    if (rc == ENOENT) complain(state + " has no volume " + name);
    if (rc == EFBIG)
        complain("the volume " + name + " cannot hold " + std::to_string(bytes.size()) + " bytes");
    if (rc != 0 && rc != ENOENT && rc != EFBIG) cannot("write the volume", name, rc);
    return rc;
}

int getVolume(const std::string& state, const std::string& name, const char* path) {
    std::string bytes;
    const int rc = readVolume(state, name, &bytes);
    if (rc == ENOENT) complain(state + " has no volume " + name);
    if (rc != 0 && rc != ENOENT) cannot("read the volume", name, rc);
    if (rc != 0) return rc;
    if (strcmp(path, "-") == 0) return writeFully(STDOUT_FILENO, bytes.data(), bytes.size());
    Descriptor file(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (file.fd < 0) return cannot("write", path, errno);
    if (int failed = writeFully(file.fd, bytes.data(), bytes.size()); failed != 0)
        return cannot("write", path, failed);
    return 0;
}

bool addFailure(const char* text, RunOptions* options) {
    FaultRule rule;
    std::string why;
    if (parseFaultRule(text, &rule, &why) != 0) {
        complain("--fail " + std::string(text) + ": " + why);
        return false;
    }
    options->failures.emplace_back(text);
    return true;
}

// Reads the options of `run` on both sides of STATE; -1 if they are in order, else an exit status.
int parseRun(int argc, char** argv, RunOptions* options) {
    const option known[] = {
        {"help", no_argument, nullptr, 'h'},
        {"watch", no_argument, nullptr, 'w'},
        {"log", required_argument, nullptr, 'l'},
        {"no-wait", no_argument, nullptr, 'n'},
        {"fail", required_argument, nullptr, 'f'},
        {"bind", required_argument, nullptr, 'b'},
        {"cmdline", required_argument, nullptr, 'c'},
        {"fresh-log", no_argument, nullptr, 'r'},
        {nullptr, 0, nullptr, 0},
    };
    // Plain words are handed back in their place ('-'), so that STATE may stand first and options follow.
    for (int c = getopt_long(argc, argv, "-", known, nullptr); c != -1;
         c = getopt_long(argc, argv, "-", known, nullptr)) {
        switch (c) {
        case 'h':
            return help(kRunUsage);
        case 'w':
            options->watch = true;
            break;
        case 'l':
            options->log = optarg;
            break;
        case 'n':
            options->noWait = true;
            break;
        case 'f':
            if (!addFailure(optarg, options)) return kExitUsage;
            break;
        case 'b':
            options->binds.emplace_back(optarg);
            break;
        case 'c':
            options->commandLine = optarg;
            break;
        case 'r':
            options->freshLog = true;
            break;
        case 1:
            if (!options->stateDir.empty()) return misuse(kRunUsage);
            options->stateDir = optarg;
            break;
        default:
            return misuse(kRunUsage);
        }
    }
    options->command.assign(argv + optind, argv + argc);
    return options->stateDir.empty() || options->command.empty() ? misuse(kRunUsage) : -1;
}

}  // namespace

int initCommand(int argc, char** argv) {
    const option known[] = {
        {"help", no_argument, nullptr, 'h'},
        {"model", required_argument, nullptr, 'm'},
        {"kernel", required_argument, nullptr, 'k'},
        {"rootfs", required_argument, nullptr, 'r'},
        {"lebs", required_argument, nullptr, 'l'},
        {"key", required_argument, nullptr, 'p'},
        {"preshared", required_argument, nullptr, 's'},
        {nullptr, 0, nullptr, 0},
    };
    InitArguments arguments;
    for (int c = getopt_long(argc, argv, "", known, nullptr); c != -1;
         c = getopt_long(argc, argv, "", known, nullptr)) {
        switch (c) {
        case 'h':
            return help(kInitUsage);
        case 'm':
            arguments.device.model = optarg;
            break;
        case 'k':
            arguments.device.kernelRelease = optarg;
            break;
        case 'r':
            arguments.device.rootfsVersion = optarg;
            break;
        case 'p':
            arguments.key = optarg;
            break;
        case 's':
            arguments.preshared = optarg;
            break;
        case 'l':
            if (parseLebs(optarg, &arguments.device.totalLebs)) break;
            return misuse(kInitUsage);
        default:
            return misuse(kInitUsage);
        }
    }
    if (optind + 1 != argc) return misuse(kInitUsage);
    arguments.stateDir = argv[optind];
    return exitFor(makeDevice(arguments));
}

int runCommand(int argc, char** argv) {
    RunOptions options;
    if (int exitStatus = parseRun(argc, argv, &options); exitStatus >= 0) return exitStatus;
    if (options.watch && options.log.empty()) options.log = options.stateDir + "/output.log";
    return runInDevice(options);
}

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

int volumeCommand(int argc, char** argv) {
    int exitStatus = 0;
    if (!isPlainCall(argc, argv, 4, kVolumeUsage, &exitStatus)) return exitStatus;
    const std::string direction = argv[1];
    if (direction != "put" && direction != "get") return misuse(kVolumeUsage);
    Device device;
    if (int rc = loadDevice(argv[2], &device); rc != 0)
        return exitFor(cannot("read the device in", argv[2], rc));
    if (direction == "get") return exitFor(getVolume(argv[2], argv[3], argv[4]));
    Descriptor lock;
    if (int rc = lockDevice(argv[2], &lock); rc != 0) return exitFor(cannot("take", argv[2], rc));
    return exitFor(putVolume(argv[2], argv[3], argv[4]));
}

}  // namespace rovusim
