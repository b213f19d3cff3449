// CLI11 first reports what is missing, although a mistyped option may be the cause.
//
// The commands, their options, and which options can be combined.

#include "cli/command_line.h"

#include "cli/commands.h"
#include "host/command_line.h"
#include "host/completion.h"
#include "spec_view/words.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <vector>

namespace {

bool isOption(const std::string& word) {
    return word.size() > 1 && word.front() == '-';
}

std::vector<std::string> optionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames())
            names.push_back(name);
    }
    return names;
}

std::vector<std::string> commandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands(nullptr))
        names.push_back(command->get_name());
    return names;
}

std::string unknownOption(const std::string& word, const CLI::App& command) {
    const std::string given = word.substr(0, word.find('='));
    const std::string nearest = nearestWord(given.substr(given.find_first_not_of('-')), optionNames(command));
    return "unknown option " + given + (nearest.empty() ? "" : "; did you mean --" + nearest + "?");
}

std::string unknownCommand(const std::string& word, const CLI::App& app) {
    const std::string nearest = nearestWord(word, commandNames(app));
    return "unknown command \"" + word + "\"" +
           (nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?");
}

}  // namespace

std::string usageMessage(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<CLI::App*> given = app.get_subcommands();
    const std::vector<std::string> unread = app.remaining(true);
    const auto option = std::find_if(unread.begin(), unread.end(), isOption);
    if (option != unread.end()) return unknownOption(*option, given.empty() ? app : *given.front());
    if (given.empty()) {
        if (!unread.empty()) return unknownCommand(unread.front(), app);
        return "a command is required: " + CLI::detail::join(commandNames(app), ", ");
    }
    if (!unread.empty()) return "one argument too many: \"" + unread.front() + "\"";
    return error.what();
}

std::string givenCommand(const CLI::App& app) {
    const std::vector<CLI::App*> given = app.get_subcommands();
    return given.empty() ? "" : " " + given.front()->get_name();
}

namespace {

// Of all commands, since the command is known only after parsing.
struct Options {
    std::string keyFolder;
    std::string keyFile;
    BuildCommandOptions build;
    SignOptions sign;
    AttachOptions attach;
    CheckCommandOptions check;
    InspectOptions inspect;
    RehearseOptions rehearse;
};

CLI::App* addKeygen(CLI::App* app, std::string* folder) {
    CLI::App* command = app->add_subcommand("keygen", "Make a key pair; overwrites nothing");
    command->add_option("DIR", *folder, "Folder for private.pem and rovu_pub.pem")->required();
    return command;
}

CLI::App* addSecret(CLI::App* app, std::string* path) {
    CLI::App* command = app->add_subcommand("secret", "Append a secret to a key file, and print its offset");
    command->add_option("FILE", *path, "Key file as the device holds it; created if missing")->required();
    return command;
}

void addKeyPass(CLI::App* command, std::string* source, CLI::Option* key) {
    command
        ->add_option("--key-pass", *source,
                     "Where the pass phrase of the key or the PIN of the token is: file:PATH (its\n"
                     "first line), fd:N or env:NAME; default: ask on the terminal")
        ->type_name("SOURCE")
        ->needs(key);
}

void requireOneOf(CLI::App* command, CLI::Option* key, CLI::Option* instead) {
    key->excludes(instead);
    command->callback([key, instead] {
        if (key->empty() && instead->empty())
            throw CLI::RequiredError("one of " + key->get_name() + " and " + instead->get_name());
    });
}

CLI::App* addBuild(CLI::App* app, BuildCommandOptions* commandOptions) {
    BuildOptions* options = &commandOptions->build;
    CLI::App* command = app->add_subcommand("build", "Make the tars and the signed spec of an update");
    command->add_option("MANIFEST", options->manifest, "The spec's table, with local files")
        ->required()
        ->type_name("FILE");
    command->add_option("--out", options->out, "Folder for the output")->required()->type_name("DIR");
    CLI::Option* key = command->add_option(
        "--key", options->key, "Private key that signs the spec: a file, or pkcs11:... on a token");
    key->type_name("KEY");
    addKeyPass(command, &options->keyPass, key);
    CLI::Option* elsewhere =
        command->add_flag("--unsigned", options->isUnsigned,
                          "In place of --key: leave the signature out, for \"sign --digest\" and \"attach\"");
    requireOneOf(command, key, elsewhere);
    command->add_option("--base-url", options->baseUrl, "URL at which the folder will be served")
        ->required()
        ->type_name("URL");
    command->add_option("--secrets", options->secrets, "Key file as the device holds it, to encrypt the tars")
        ->type_name("FILE");
    command
        ->add_option("--set", options->variables,
                     "A string that the manifest reads as vars.NAME; again for each name")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    command->add_flag("--follow-links", options->followLinks,
                      "Follow links that lead out of the manifest's folder");
    command->add_flag("--json", commandOptions->json, "Print the output's table and the findings as JSON");
    command->add_flag("--force", options->force, "Sign in spite of errors that \"check\" finds");
    return command;
}

CLI::App* addSign(CLI::App* app, SignOptions* options) {
    CLI::App* command = app->add_subcommand("sign", "Sign a spec in place; replaces an old signature");
    command->add_option("SPEC", options->spec, "Spec written by hand, signed or not")
        ->required()
        ->type_name("FILE");
    CLI::Option* key = command->add_option("--key", options->key,
                                           "Private key that signs: a file, or pkcs11:... on a token");
    key->type_name("KEY");
    addKeyPass(command, &options->keyPass, key);
    CLI::Option* digest =
        command->add_flag("--digest", options->isDigest,
                          "In place of --key: print the SHA-256 that is to be signed, and change nothing");
    requireOneOf(command, key, digest);
    return command;
}

CLI::App* addAttach(CLI::App* app, AttachOptions* options) {
    CLI::App* command =
        app->add_subcommand("attach", "Append a signature from elsewhere, if a device verifies it");
    command->add_option("SPEC", options->spec, "Spec without a signature, or with an old one")
        ->required()
        ->type_name("FILE");
    command->add_option("SIGNATURE", options->signature, "The 256 bytes of the signature, or their Base64")
        ->required()
        ->type_name("FILE");
    command->add_option("--pub", options->publicKey, "Public key that the devices hold")
        ->required()
        ->type_name("PEM");
    return command;
}

void addFileOptions(CLI::App* command, CheckOptions* options) {
    SignatureUse* use = &options->signatureUse;
    CLI::Option* key = command->add_option("--pub", use->publicKey, "Public key that the device holds");
    key->type_name("PEM");
    command->add_flag("--unsigned", use->isUnsigned, "The device is told not to verify")->excludes(key);
    CLI::Option* folder =
        command->add_option("--files", options->files.folder, "Folder with the files that are served");
    folder->type_name("DIR");
    command->add_option("--secrets", options->files.secrets, "Key file as the device holds it")
        ->type_name("FILE")
        ->needs(folder);
}

void addDeviceOptions(CLI::App* command, CheckCommandOptions* options) {
    CLI::Option* model =
        command->add_option("--model", options->device.model, "Plan for this device's model");
    CLI::Option* kernel = command->add_option("--kernel", options->device.kernel, "Its kernel's release");
    CLI::Option* rootfs =
        command->add_option("--rootfs", options->device.rootfs, "Version of its root file system");
    model->type_name("NAME")->needs(kernel)->needs(rootfs);
    kernel->type_name("VERSION")->needs(model);
    rootfs->type_name("VERSION")->needs(model);
    command
        ->add_option("--device", options->devices,
                     "model=NAME,kernel=RELEASE,rootfs=VERSION; again for each kind of device.\n"
                     "With \"refuses:\" before it, the kind must refuse the update. After it, as far as\n"
                     "known, with commas between them:\n"
                     "what the other set holds: inactive-kernel=RELEASE, inactive-rootfs=VERSION,\n"
                     "inactive-data=, or inactive= for all three; each may be blank or missing;\n"
                     "the space: tmp=64M free in /tmp; data=8M of the data volume;\n"
                     "free-lebs=240,leb-size=124K, the erase blocks for a new kernel and rootfs;\n"
                     "arch=mips, the processor, by its usual or its qemu name;\n"
                     "root=FILE, for a rehearsal: its root file system, as a folder, squashfs or tar")
        ->type_name("KIND")
        ->allow_extra_args(false);
}

CLI::App* addCheck(CLI::App* app, CheckCommandOptions* options) {
    CLI::App* command =
        app->add_subcommand("check", "Report what devices will do with a spec, and its mistakes");
    command->add_option("SPEC", options->check.spec, "The spec's file, signed or not")
        ->required()
        ->type_name("FILE");
    addFileOptions(command, &options->check);
    addDeviceOptions(command, options);
    command->add_flag("--fetch", options->check.fetches,
                      "Also fetch the tars from their server, as a device does; nothing is stored");
    command->add_flag("-v,--verbose", options->verbose, "Also print the states and commands of the plan");
    command->add_flag("--strict", options->strict, "The exit status is 1 for warnings too");
    command->add_flag("--json", options->json, "Print everything as JSON");
    return command;
}

CLI::App* addRehearse(CLI::App* app, RehearseOptions* options) {
    CLI::App* command = app->add_subcommand(
        "rehearse", "Run an update on simulated devices, and compare with what \"check\" predicts");
    command->add_option("SPEC", options->check.check.spec, "The spec's file, signed or not")
        ->required()
        ->type_name("FILE");
    addFileOptions(command, &options->check.check);
    command->get_option("--files")->required();
    addDeviceOptions(command, &options->check);
    command
        ->add_option(
            "--rovu", options->program,
            "The device's program, built for this machine; default: rovu next to\nrovu-pack, or in PATH")
        ->type_name("FILE");
    command
        ->add_option("--health", options->health,
                     "Command that an updated device runs after its restart, and that must\nsucceed")
        ->type_name("COMMAND");
    command->add_option("--script-limit", options->scriptSeconds, "Seconds that a script may run (600)")
        ->type_name("N")
        ->check(CLI::Range(1U, 1U << 20));
    command->add_flag("--host-tools", options->hostTools,
                      "Devices without root=... have the programs of this machine,\nnot only BusyBox");
    return command;
}

CLI::App* addInspect(CLI::App* app, InspectOptions* options) {
    CLI::App* command =
        app->add_subcommand("inspect", "Show what a file is and, for a spec, what is in the update");
    command->add_option("SPEC", options->spec, "The spec's file, signed or not")
        ->required()
        ->type_name("FILE");
    command
        ->add_option("--pub", options->publicKeys, "Public key that may have signed it; again for each key")
        ->type_name("PEM")
        ->allow_extra_args(false);
    command->add_flag("--json", options->json, "Print everything as JSON");
    return command;
}

// The parser may have stopped before it.
bool wantsJson(int argc, char** argv) {
    return std::any_of(argv, argv + argc, [](const char* word) { return std::string(word) == "--json"; });
}

int reportUsage(const CLI::App& app, const CLI::ParseError& error, bool json) {
    const std::string command = givenCommand(app);
    const Fault fault(EINVAL, usageMessage(app, error));
    const int status = reportFault(command, fault, json);
    fprintf(stderr, "Run \"rovu-pack%s --help\" for its options.\n", command.c_str());
    return status;
}

}  // namespace

int runCommandLine(int argc, char** argv) {
    CLI::App app("Makes and signs updates for rovu, and predicts what devices will do with them.",
                 "rovu-pack");
    app.set_version_flag("--version", "rovu-pack " ROVU_PACK_VERSION);
    app.require_subcommand(1);
    Options options;
    const CLI::App* keygen = addKeygen(&app, &options.keyFolder);
    const CLI::App* secret = addSecret(&app, &options.keyFile);
    const CLI::App* build = addBuild(&app, &options.build);
    const CLI::App* sign = addSign(&app, &options.sign);
    const CLI::App* attach = addAttach(&app, &options.attach);
    addCheck(&app, &options.check);
    const CLI::App* rehearse = addRehearse(&app, &options.rehearse);
    const CLI::App* inspect = addInspect(&app, &options.inspect);
    if (argc == 3 && std::string(argv[1]) == "--completion") return printCompletion(app, argv[2]);
    try {
        parseCommandLine(&app, argc, argv);
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        return reportUsage(app, error, wantsJson(argc, argv));
    }
    if (keygen->parsed()) return runKeygen(options.keyFolder);
    if (secret->parsed()) return runSecret(options.keyFile);
    if (build->parsed()) return runBuild(options.build);
    if (sign->parsed()) return runSign(options.sign);
    if (rehearse->parsed()) return runRehearse(options.rehearse);
    if (attach->parsed()) return runAttach(options.attach);
    if (inspect->parsed()) return runInspect(options.inspect);
    return runCheck(options.check);
}
