// rovu-sim: simulates a device on a workstation.
//
// What the command line accepts. The library that reads it throws, and memory can run out: nothing is caught but here.

#include "host/command_line.h"

#include "host/completion.h"
#include "launcher/command_line/commands.h"
#include "launcher/host_program.h"
#include "launcher/run/device_run.h"
#include "rovu_sim/fault_rules.h"
#include "rovu_sim/sandbox_paths.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rovusim {
namespace {

constexpr int kExitUsage = 2;

constexpr char kRehearsal[] = R"(A rehearsal:
  rovu-sim init dev --model RV-20 --key rovu_pub.pem
  rovu-sim run dev --watch --no-wait --serve http://updates.example.com/2.5=release -- \
      build/dev/rovu http://updates.example.com/2.5/update.lua
  rovu-sim restart dev
  rovu-sim show dev)";

constexpr char kRestart[] =
    R"(The set that bootswitcher names becomes the active set, /tmp is emptied, and a reboot request is cleared. Fails, and
changes nothing, if that set has no complete kernel and root volume. If the root volume holds a squashfs image or a tar,
that is the root file system from then on.)";

constexpr char kRunRules[] =
    R"(COMMAND runs in a sandbox. It sees only what is the device's own: root file system, /tmp, /app0, /etc/ssh, /dev, the
tools, kernel release, kernel command line and a network in which no host can be reached. If COMMAND is a path that the
device does not have, it is a program of the workstation, which is shown inside with its libraries.

RULE of --fail is WHICH=HOW. WHICH is K, the K-th call of the run (as numbered by "rovu-sim calls"); TOOL, each call of
the tool; or TOOL:N, its N-th call. HOW is one of:
  exit:STATUS        the tool does nothing and exits with STATUS
  signal:NAME        the tool does nothing and is killed by the signal
  missing            as if the command did not exist
  half:STATUS        the tool does its work (a volume update: half of it), then exits with STATUS
  hang               the tool never exits

RULE of --fail-syscall is NAME:N=ERRNO for the program's N-th system call NAME, or NAME:N+=ERRNO for each from the N-th
on. RULE of --kill-at is NAME:N=SIGNAL for a signal to COMMAND's process before the N-th system call NAME of its main
thread, NAME:N+=SIGNAL before each from the N-th on, or NAME:N/INSTRUCTIONS=SIGNAL so many instructions after the N-th.

The program's system calls are those of every process that runs the executable of COMMAND's process: of its
threads, and of its children until they execute another program. Names and numbers are the host's.

Exit status: the command's; 2 for wrong arguments; 128+N if signal N killed it; 124 if a limit ended it; 125 if the
device could not be set up; 126 or 127 if the command could not be run or found. SIGTERM and SIGINT are forwarded to the
command.)";

CLI::App* addCommand(CLI::App* app, const char* name, const char* description, std::string* stateDir) {
    CLI::App* command = app->add_subcommand(name, description);
    command->add_option("STATE", *stateDir, "The device's directory")->required()->type_name("DIR");
    return command;
}

// Parses a number, or with K, M or G as many times 1024 and so on. Returns whether it is one, and positive.
bool parseSize(const std::string& text, uint64_t* bytes) {
    constexpr uint64_t kMost = uint64_t{1} << 40;
    char* end = nullptr;
    *bytes = strtoull(text.c_str(), &end, 10);
    const char* units = "KMG";
    const char* unit = *end == '\0' ? nullptr : strchr(units, *end);
    if (unit != nullptr) {
        *bytes <<= 10 * (unit - units + 1);
        ++end;
    }
    return text[0] >= '0' && text[0] <= '9' && *end == '\0' && *bytes > 0 && *bytes <= kMost;
}

// Takes one value of an option, in the order of the command line; returns what is wrong with it, or nothing.
using Taker = std::function<std::string(const std::string& value)>;

CLI::Option* addTaker(CLI::App* command, const char* name, const char* type, const char* description,
                      const Taker& take) {
    const auto taken = [name, take](const std::string& value) {
        const std::string why = take(value);
        if (!why.empty()) throw CLI::ValidationError(std::string(name) + " " + value, why);
    };
    return command->add_option_function<std::string>(name, taken, description)
        ->type_name(type)
        ->trigger_on_parse();
}

CLI::App* addInit(CLI::App* app, InitOptions* options) {
    DeviceOptions* device = &options->device;
    CLI::App* command =
        app->add_subcommand("init", "Make a device in a new directory; its active set is set 0");
    command->add_option("STATE", options->stateDir, "The directory, which must not exist")
        ->required()
        ->type_name("DIR");
    command->add_option("--model", device->model, "Model that readplatform.sh prints (RV-20)")
        ->type_name("NAME");
    command->add_option("--kernel", device->kernelRelease, "Kernel release of both sets (3.10.49-2)")
        ->type_name("RELEASE");
    command->add_option("--rootfs", device->rootfsVersion, "Root file system version of both sets (2.4.1)")
        ->type_name("VERSION");
    command
        ->add_option("--lebs", device->totalLebs, "Erase blocks of the UBI device, 126976 bytes each (1024)")
        ->type_name("N")
        ->check(CLI::Range(1U, 1U << 20));
    addTaker(command, "--tmp", "SIZE", "Room in /tmp, in bytes or with K, M or G (as much as the host has)",
             [device](const std::string& value) {
                 return parseSize(value, &device->tmpBytes) ? "" : "a size is expected";
             });
    CLI::Option* root = command->add_option(
        "--root", device->root,
        "Root file system: a folder, a squashfs image or a tar (BusyBox and\nnothing else)");
    root->type_name("FILE");
    command
        ->add_flag_callback(
            "--host-tools", [device] { device->root = kHostRoot; },
            "The workstation's programs as the root file system")
        ->excludes(root);
    command->add_option("--key", options->key, "Public key for the device's /etc/ssh/rovu_pub.pem")
        ->type_name("FILE");
    command
        ->add_option("--preshared", options->preshared,
                     "Key file for the device's /app0/secrets/rovu/preshared")
        ->type_name("FILE");
    return command;
}

// "time=SECONDS", "memory=SIZE", "disk=SIZE" or "processes=N".
std::string takeLimit(const std::string& text, RunOptions* options) {
    const std::pair<const char*, uint64_t*> kinds[] = {{"time", &options->limits.scriptSeconds},
                                                       {"memory", &options->limits.memoryBytes},
                                                       {"disk", &options->diskBytes},
                                                       {"processes", &options->limits.processes}};
    const size_t equals = text.find('=');
    for (const auto& [name, place] : kinds) {
        if (equals != std::string::npos && text.substr(0, equals) == name &&
            parseSize(text.substr(equals + 1), place))
            return "";
    }
    return "time=SECONDS, memory=SIZE, disk=SIZE or processes=N is expected";
}

std::string takeFailure(const std::string& text, RunOptions* options) {
    FaultRule rule;
    std::string why;
    if (parseFaultRule(text, &rule, &why) != 0) return why;
    options->failures.push_back(text);
    return "";
}

std::string takeServedUrl(const std::string& text, RunOptions* options) {
    ServedUrl url;
    std::string why;
    if (!parseServedUrl(text, &url, &why)) return why;
    options->served.push_back(url);
    return "";
}

std::string takeSetting(const std::string& text, RunOptions* options) {
    if (text.find('=') == std::string::npos) return "NAME=VALUE is expected";
    options->environment.push_back(text);
    return "";
}

void addSyscallOptions(CLI::App* command, RunOptions* options) {
    const auto taker = [options](auto parse) {
        return [options, parse](const std::string& text) {
            SyscallRule rule;
            std::string why;
            if (parse(text, &rule, &why) != 0) return why;
            options->syscallRules.push_back(rule);
            return std::string();
        };
    };
    addTaker(command, "--fail-syscall", "RULE", "Make system calls of the program fail; repeatable",
             taker(parseFailRule));
    addTaker(command, "--kill-at", "RULE", "Send COMMAND's process a signal at a system call; repeatable",
             taker(parseKillRule));
    command
        ->add_option("--count-syscalls", options->countFile,
                     "Write lines \"NAME COUNT OWN\": the system calls of the program, and of the\n"
                     "main thread of COMMAND's process")
        ->type_name("FILE");
}

struct RunFormatter : CLI::Formatter {
    std::string make_usage(const CLI::App* /*app*/, std::string /*name*/) const override {
        return "Usage: rovu-sim run STATE [OPTIONS] -- COMMAND [ARG...]\n";
    }
};

CLI::App* addRun(CLI::App* app, RunOptions* options) {
    CLI::App* command =
        addCommand(app, "run", "Run the command after -- inside the device", &options->stateDir);
    const auto with = [options](auto take) {
        return [options, take](const std::string& text) { return take(text, options); };
    };
    command->add_flag("--watch", options->watch,
                      "Draw the update's progress; the command's output goes to a file");
    command
        ->add_option("--log", options->log, "File for the command's output (with --watch: STATE/output.log)")
        ->type_name("FILE");
    command->add_flag("--no-wait", options->noWait, "Skip waits of a second or more, and record them");
    addTaker(command, "--fail", "RULE",
             "Make calls of tools fail; repeatable, the first rule that matches applies", with(takeFailure));
    command->add_flag("--until-reboot", options->untilReboot,
                      "End all that runs inside, with status 0, when the device asks for its restart");
    command
        ->add_option("--bind", options->binds,
                     "Show a file or folder of the host inside, at the same path, read-only;\nrepeatable")
        ->type_name("PATH")
        ->allow_extra_args(false);
    CLI::Option* serve = addTaker(
        command, "--serve", "URL=DIR",
        "Answer the http or https URL, and all below it, from the folder DIR;\nrepeatable. Needs nginx",
        with(takeServedUrl));
    command
        ->add_flag("--network", options->usesHostNetwork,
                   "The network inside is the host's, servers on loopback included")
        ->excludes(serve);
    addTaker(command, "--limit", "WHAT=N",
             "End the run, with status 124, when it goes beyond: time=SECONDS of a script\n"
             "or tool, memory=SIZE, processes=N; or limit disk=SIZE, each for /tmp (unless\n"
             "the device has a size there), /app0, /etc/ssh and all else. Repeatable",
             with(takeLimit));
    addTaker(command, "--setenv", "NAME=VALUE",
             "An environment variable of the command; repeatable. It gets none of the\nhost's but TERM",
             with(takeSetting));
    command
        ->add_option("--cmdline", options->commandLine,
                     "Kernel command line instead of that of the active set")
        ->type_name("LINE");
    command->add_flag("--fresh-log", options->freshLog, "Empty the call log first");
    addSyscallOptions(command, options);
    command->formatter(std::make_shared<RunFormatter>());
    command->footer(kRunRules);
    return command;
}

CLI::App* addCalls(CLI::App* app, CallsOptions* options) {
    CLI::App* command = addCommand(
        app, "calls", "List the commands that were run inside, each with its number and the progress then",
        &options->stateDir);
    CLI::Option* last = command->add_flag("--last", options->last, "Only those of the last run");
    command->add_flag("--clear", options->clear, "Empty the log instead")->excludes(last);
    return command;
}

CLI::App* addVolume(CLI::App* app, VolumeOptions* options) {
    CLI::App* command = app->add_subcommand("volume", "Write a volume from a file, or a file from a volume");
    command->footer(
        "A static volume holds exactly the bytes written; a dynamic one is padded with 0xFF bytes.");
    command->add_option("DIRECTION", options->direction, "Into the volume, or out of it")
        ->required()
        ->check(CLI::IsMember({"put", "get"}));
    command->add_option("STATE", options->stateDir, "The device's directory")->required()->type_name("DIR");
    command->add_option("NAME", options->name, "The volume's name")->required();
    command->add_option("FILE", options->file, "The file; \"-\" is standard input or output")
        ->required()
        ->type_name("FILE");
    return command;
}

bool isRun(int argc, char** argv) {
    return argc > 1 && strcmp(argv[1], "run") == 0;
}

// `needsDashes`: no command was given.
int refuse(const CLI::App& app, const CLI::ParseError& error, bool needsDashes) {
    const std::vector<CLI::App*> given = app.get_subcommands();
    const std::string command = given.empty() ? "" : " " + given.front()->get_name();
    std::string why = error.what();
    // The library says first what is missing, although a mistyped word is why it is.
    if (const std::vector<std::string> unread = app.remaining(true); !unread.empty()) {
        const auto isOption = [](const std::string& word) { return word.size() > 1 && word.front() == '-'; };
        const auto option = std::find_if(unread.begin(), unread.end(), isOption);
        why = command == " run" && needsDashes && option != unread.begin()
                  ? "\"--\" is required before the command: rovu-sim run STATE -- " + unread.front()
              : option != unread.end() ? "unknown option " + *option
              : given.empty()          ? "unknown command \"" + unread.front() + "\""
                                       : "one argument too many: \"" + unread.front() + "\"";
    }
    complain(why + "\nRun \"rovu-sim" + command + " --help\" for what it takes.");
    return kExitUsage;
}

int runCommandLine(int argc, char** argv) {
    CLI::App app(
        "rovu-sim simulates a device on a workstation, so that an update can be rehearsed before it runs on one.",
        "rovu-sim");
    app.set_version_flag("--version", "rovu-sim " ROVU_SIM_VERSION);
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.require_subcommand(1);
    InitOptions init;
    RunOptions run;
    CallsOptions calls;
    VolumeOptions volume;
    std::string restarted, shown;
    addInit(&app, &init);
    const CLI::App* runCommand = addRun(&app, &run);
    CLI::App* restart = addCommand(&app, "restart", "Simulate the boot after an update", &restarted);
    restart->footer(kRestart);
    const CLI::App* show = addCommand(
        &app, "show", "Print versions, boot sets, volumes with their MD5s, and reference files", &shown);
    const CLI::App* listing = addCalls(&app, &calls);
    const CLI::App* transfer = addVolume(&app, &volume);
    app.footer(kRehearsal);  // after the commands, or each would have it
    if (argc == 3 && strcmp(argv[1], "--completion") == 0) return printCompletion(app, argv[2]);
    char** end = argv + argc;
    if (isRun(argc, argv)) {
        // The command's own options are not the launcher's.
        end = std::find_if(argv, end, [](const char* word) { return strcmp(word, "--") == 0; });
        if (end != argv + argc) run.command.assign(end + 1, argv + argc);
    }
    try {
        parseCommandLine(&app, static_cast<int>(end - argv), argv);
        if (runCommand->parsed() && run.command.empty()) throw CLI::RequiredError("a command after \"--\"");
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        return refuse(app, error, run.command.empty());
    }
    if (runCommand->parsed()) {
        if (run.watch && run.log.empty()) run.log = run.stateDir + "/output.log";
        return runInDevice(run);
    }
    if (restart->parsed()) return restartCommand(restarted);
    if (show->parsed()) return showCommand(shown);
    if (listing->parsed()) return callsCommand(calls);
    if (transfer->parsed()) return volumeCommand(volume);
    return initCommand(init);
}

}  // namespace
}  // namespace rovusim

int main(int argc, char** argv) {
    try {
        return rovusim::runCommandLine(argc, argv);
    } catch (const std::exception& fault) {
        rovusim::complain(fault.what());
        return rovusim::isRun(argc, argv) ? rovusim::kExitSetupFailed : EXIT_FAILURE;
    }
}
