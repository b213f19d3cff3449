// Makes an update out of a manifest.

#include "build_command.h"

#include "build_report.h"
#include "exit_status.h"
#include "update_builder.h"

#include <cstdio>
#include <memory>

namespace {

int run(const BuildOptions& options) {
    std::vector<BuiltFile> made;
    std::string error;
    int rc = 0;
    {
        ProgressBar bar;  // gone from the screen before anything else is printed
        rc = buildUpdate(options, &bar, &made, &error);
    }
    if (rc != 0) {
        fprintf(stderr, "rovu-pack build: %s\n", error.c_str());
        return kExitTrouble;
    }
    printBuildReport(made, stdout);
    return kExitClean;
}

}  // namespace

void addBuildCommand(CLI::App* app, int* exitStatus) {
    const auto options = std::make_shared<BuildOptions>();
    CLI::App* command = app->add_subcommand("build", "Make the tars and the signed spec of an update");
    command->add_option("MANIFEST", options->manifest, "The spec's table, with local files")
        ->required()
        ->type_name("FILE");
    command->add_option("--out", options->out, "Folder for what is made")->required()->type_name("DIR");
    command->add_option("--key", options->key, "Private key that signs the spec")
        ->required()
        ->type_name("PEM");
    command->add_option("--base-url", options->baseUrl, "URL at which the folder will be served")
        ->required()
        ->type_name("URL");
    command->add_option("--secrets", options->secrets, "Key file as the device holds it, to encrypt the tars")
        ->type_name("FILE");
    command->callback([options, exitStatus] { *exitStatus = run(*options); });
}
