// rovu-sim run: runs a command inside a device.

#include "launcher/command_line/arguments.h"
#include "launcher/command_line/commands.h"
#include "launcher/command_line/usage.h"
#include "launcher/message.h"
#include "launcher/run/device_run.h"
#include "rovu_sim/fault_rules.h"

#include <cstring>
#include <getopt.h>
#include <string>
#include <utility>

namespace rovusim {
namespace {

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

bool addServedUrl(const char* text, RunOptions* options) {
    ServedUrl url;
    std::string why;
    if (!parseServedUrl(text, &url, &why)) {
        complain("--serve " + std::string(text) + ": " + why);
        return false;
    }
    options->served.push_back(url);
    return true;
}

const option kOptions[] = {
    {"help", no_argument, nullptr, 'h'},
    {"watch", no_argument, nullptr, 'w'},
    {"log", required_argument, nullptr, 'l'},
    {"no-wait", no_argument, nullptr, 'n'},
    {"fail", required_argument, nullptr, 'f'},
    {"until-reboot", no_argument, nullptr, 'e'},
    {"bind", required_argument, nullptr, 'b'},
    {"serve", required_argument, nullptr, 'u'},
    {"network", no_argument, nullptr, 'N'},
    {"limit", required_argument, nullptr, 'L'},
    {"setenv", required_argument, nullptr, 'v'},
    {"cmdline", required_argument, nullptr, 'c'},
    {"fresh-log", no_argument, nullptr, 'r'},
    {"fail-syscall", required_argument, nullptr, 's'},
    {"kill-at", required_argument, nullptr, 'k'},
    {"count-syscalls", required_argument, nullptr, 't'},
    {nullptr, 0, nullptr, 0},
};

// "time=SECONDS", "memory=SIZE", "disk=SIZE" or "processes=N"; -1 if it is valid, else an exit status.
int addLimit(const std::string& text, RunOptions* options) {
    const std::pair<const char*, uint64_t*> kinds[] = {{"time", &options->limits.scriptSeconds},
                                                       {"memory", &options->limits.memoryBytes},
                                                       {"disk", &options->diskBytes},
                                                       {"processes", &options->limits.processes}};
    const size_t equals = text.find('=');
    for (const auto& [name, place] : kinds) {
        if (text.substr(0, equals) == name && equals != std::string::npos &&
            parseSize(text.c_str() + equals + 1, place))
            return -1;
    }
    complain("--limit " + text + ": time=SECONDS, memory=SIZE, disk=SIZE or processes=N is expected");
    return kExitUsage;
}

using SyscallRuleParser = int (*)(const std::string& text, SyscallRule* rule, std::string* why);

// Adds a rule on system calls; -1 if it is valid, else an exit status.
int addSyscallRule(const char* option, const char* text, SyscallRuleParser parse, RunOptions* options) {
    SyscallRule rule;
    std::string why;
    if (parse(text, &rule, &why) != 0) {
        complain(std::string(option) + " " + text + ": " + why);
        return kExitUsage;
    }
    options->syscallRules.push_back(rule);
    return -1;
}

// Applies one option; -1 if it is valid, else an exit status.
int applyRunOption(int c, const char* value, RunOptions* options) {
    switch (c) {
    case 'h':
        return help(kRunUsage);
    case 'w':
        options->watch = true;
        return -1;
    case 'l':
        options->log = value;
        return -1;
    case 'n':
        options->noWait = true;
        return -1;
    case 'e':
        options->untilReboot = true;
        return -1;
    case 'f':
        if (!addFailure(value, options)) return kExitUsage;
        return -1;
    case 'b':
        options->binds.emplace_back(value);
        return -1;
    case 'u':
        if (!addServedUrl(value, options)) return kExitUsage;
        return -1;
    case 'N':
        options->usesHostNetwork = true;
        return -1;
    case 'L':
        return addLimit(value, options);
    case 'v':
        if (strchr(value, '=') == nullptr) {
            complain("--setenv " + std::string(value) + ": NAME=VALUE is expected");
            return kExitUsage;
        }
        options->environment.emplace_back(value);
        return -1;
    case 'c':
        options->commandLine = value;
        return -1;
    case 'r':
        options->freshLog = true;
        return -1;
    case 's':
        return addSyscallRule("--fail-syscall", value, parseFailRule, options);
    case 'k':
        return addSyscallRule("--kill-at", value, parseKillRule, options);
    case 't':
        options->countFile = value;
        return -1;
    case 1:
        if (!options->stateDir.empty()) return misuse(kRunUsage);
        options->stateDir = value;
        return -1;
    default:
        return misuse(kRunUsage);
    }
}

// Parses the options of `run` on both sides of STATE; -1 if they are valid, else an exit status.
int parseRun(int argc, char** argv, RunOptions* options) {
    // With "-" getopt returns plain words in place, so that STATE can come first and options follow.
    for (int c = getopt_long(argc, argv, "-", kOptions, nullptr); c != -1;
         c = getopt_long(argc, argv, "-", kOptions, nullptr)) {
        if (int exitStatus = applyRunOption(c, optarg, options); exitStatus >= 0) return exitStatus;
    }
    options->command.assign(argv + optind, argv + argc);
    if (options->usesHostNetwork && !options->served.empty()) {
        complain(
            "--network and --serve exclude each other: a URL is served in a network of the device's own");
        return kExitUsage;
    }
    return options->stateDir.empty() || options->command.empty() ? misuse(kRunUsage) : -1;
}

}  // namespace

int runCommand(int argc, char** argv) {
    RunOptions options;
    if (int exitStatus = parseRun(argc, argv, &options); exitStatus >= 0) return exitStatus;
    if (options.watch && options.log.empty()) options.log = options.stateDir + "/output.log";
    return runInDevice(options);
}

}  // namespace rovusim
