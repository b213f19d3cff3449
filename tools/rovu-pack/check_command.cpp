// Says what devices will do with a spec, and what its owner will regret.

#include "check_command.h"

#include "check_json.h"
#include "check_report.h"
#include "check_update.h"
#include "exit_status.h"

#include <cstdio>
#include <memory>

namespace {

struct CommandOptions {
    CheckOptions check;
    DeviceKind device;
    std::vector<std::string> devices;
    bool strict = false;
    bool json = false;
};

int gatherDevices(CommandOptions* options, std::string* error) {
    if (!options->device.model.empty()) options->check.devices.push_back(options->device);
    for (const std::string& text : options->devices) {
        DeviceKind device;
        if (int rc = parseDeviceKind(text, &device, error); rc != 0) return rc;
        options->check.devices.push_back(device);
    }
    return 0;
}

void print(const CheckResult& result) {
    printFindings(result.findings, stdout);
    if (result.fleet.size() == 1) {
        printPlan(result.fleet.front(), stdout);
    } else if (!result.fleet.empty()) {
        printFleet(result.fleet, stdout);
    }
}

int run(CommandOptions* options) {
    CheckResult result;
    std::string error;
    int rc = gatherDevices(options, &error);
    if (rc == 0) rc = checkUpdate(options->check, &result, &error);
    if (rc != 0) {
        fprintf(stderr, "rovu-pack check: %s\n", error.c_str());
        return kExitTrouble;
    }
    if (options->json) {
        fputs(checkJson(result).c_str(), stdout);
    } else {
        print(result);
    }
    const size_t counted =
        result.findings.count(eError) + (options->strict ? result.findings.count(eWarning) : 0);
    return counted == 0 ? kExitClean : kExitFindings;
}

// An empty value is most often a variable that is not set, and must not count as an option that is not there.
std::string refuseEmpty(const std::string& value) {
    return value.empty() ? "the value is empty" : "";
}

void addFileOptions(CLI::App* command, CommandOptions* options) {
    SignatureUse* use = &options->check.signatureUse;
    CLI::Option* key = command->add_option("--pub", use->publicKey, "Public key that the device holds");
    key->type_name("PEM")->check(refuseEmpty);
    command->add_flag("--unsigned", use->isUnsigned, "The device is told not to verify")->excludes(key);
    CLI::Option* folder =
        command->add_option("--files", options->check.files.folder, "Folder with the files that are served");
    folder->type_name("DIR")->check(refuseEmpty);
    command->add_option("--secrets", options->check.files.secrets, "Key file as the device holds it")
        ->type_name("FILE")
        ->check(refuseEmpty)
        ->needs(folder);
}

void addDeviceOptions(CLI::App* command, CommandOptions* options) {
    CLI::Option* model =
        command->add_option("--model", options->device.model, "Plan for this device's model");
    CLI::Option* kernel = command->add_option("--kernel", options->device.kernel, "Its kernel's release");
    CLI::Option* rootfs =
        command->add_option("--rootfs", options->device.rootfs, "Version of its root file system");
    for (CLI::Option* option : {model, kernel, rootfs})
        option->check(refuseEmpty);
    model->type_name("NAME")->needs(kernel)->needs(rootfs);
    kernel->type_name("VERSION")->needs(model);
    rootfs->type_name("VERSION")->needs(model);
    command
        ->add_option("--device", options->devices,
                     "model=...,kernel=...,rootfs=...; again for each kind of device")
        ->type_name("KIND")
        ->allow_extra_args(false);
}

}  // namespace

void addCheckCommand(CLI::App* app, int* exitStatus) {
    const auto options = std::make_shared<CommandOptions>();
    CLI::App* command =
        app->add_subcommand("check", "Say what devices will do with a spec, and what is wrong with it");
    command->add_option("SPEC", options->check.spec, "The spec's file, signed or not")
        ->required()
        ->type_name("FILE");
    addFileOptions(command, options.get());
    addDeviceOptions(command, options.get());
    command->add_flag("--strict", options->strict, "Warnings count for the exit status too");
    command->add_flag("--json", options->json, "Print everything as JSON");
    command->callback([options, exitStatus] { *exitStatus = run(options.get()); });
}
