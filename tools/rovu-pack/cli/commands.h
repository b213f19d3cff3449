// The subcommands. Each prints its result to stdout and its errors to stderr, and returns the exit status.

#pragma once

#include "builder/update_builder.h"
#include "checker/update_check.h"
#include "host/fault.h"
#include "host/printable.h"
#include "reports/reports.h"
#include "signing/key_files.h"

#include <cstdio>
#include <string>
#include <vector>

constexpr int kExitClean = 0;
constexpr int kExitFindings = 1;  // the checked or built update has findings that count
constexpr int kExitTrouble = 2;   // the work could not be done

/// The name of the public half of a key pair, beside the private one.
constexpr char kPublicKeyName[] = "rovu_pub.pem";

struct BuildCommandOptions {
    BuildOptions build;
    bool json = false;
};

struct SignOptions {
    std::string spec;       ///< file, signed or not
    std::string key;        ///< private key: a file (PEM), or a URI on a token
    std::string keyPass;    ///< where its pass phrase or PIN is; empty: the terminal
    bool isDigest = false;  ///< only print what is to be signed
};

struct AttachOptions {
    std::string spec;       ///< file, whose signature may be missing
    std::string signature;  ///< file, raw or Base64
    std::string publicKey;  ///< file of the devices' public key, PEM
};

struct CheckCommandOptions {
    CheckOptions check;
    DeviceKind device;                 ///< empty, or one device
    std::vector<std::string> devices;  ///< more, as "model=...,kernel=...,rootfs=..."
    bool verbose = false;              ///< all commands of the plan too
    bool strict = false;               ///< warnings count for the exit status too
    bool json = false;
};

struct RehearseOptions {
    CheckCommandOptions check;  // the update and the devices
    std::string program;        // the device's program, built for this machine; empty: the one beside this
    std::string health;  // run by the shell of a device after its restart; empty: only the shell is tried
    unsigned scriptSeconds = 600;  // that a script may run
    bool hostTools = false;        // devices without a named root file system have the workstation's programs
};

struct InspectOptions {
    std::string spec;                     ///< file of any kind
    std::vector<std::string> publicKeys;  ///< of which one may have signed it
    bool json = false;
};

/// Prints "rovu-pack COMMAND: MESSAGE" to stderr, and for a program that reads JSON the message to stdout.
/// \param command with a space before it; empty: none was given.
/// \return kExitTrouble.
inline int reportFault(const std::string& command, const Fault& fault, bool json = false) {
    fprintf(stderr, "rovu-pack%s: %s\n", command.c_str(), printable(fault.message()).c_str());
    if (json) fputs(faultJson(fault).c_str(), stdout);
    return kExitTrouble;
}

/// Warns of a private key that others can read.
/// \param command with a space before it.
/// \param key its file, or a URI on a token.
inline void warnOfOpenKey(const std::string& command, const std::string& key) {
    if (!isReadableByOthers(key)) return;
    const std::string name = printable(key);
    fprintf(stderr, "rovu-pack%s: warning: the private key %s can be read by others; chmod go= %s\n",
            command.c_str(), name.c_str(), name.c_str());
}

/// Makes a key pair in `folder`, which is created if missing; overwrites nothing.
int runKeygen(const std::string& folder);

/// Appends a secret to the key file `path`, which is created if missing, and prints its offset in bytes.
int runSecret(const std::string& path);

/// Makes an update from a manifest, and prints a table of the output; the findings of the check go to stderr.
int runBuild(const BuildCommandOptions& options);

/// Signs a spec in place, which replaces an old signature; or prints the digest that is to be signed elsewhere.
int runSign(const SignOptions& options);

/// Appends a signature from elsewhere to a spec in place, if a device accepts the result.
int runAttach(const AttachOptions& options);

/// Prints what a file is, and what is in the update if it is a spec.
int runInspect(const InspectOptions& options);

/// Says how the update is rehearsed, which neither a build nor a check does.
/// \param check the same update's: its spec, its files and the key.
void printNotRehearsed(const CheckOptions& check);

/// Adds the devices of the command line to those of the check.
Fault gatherDevices(CheckCommandOptions* options);

/// Runs an update on simulated devices, and prints whether each run was what `check` predicts.
int runRehearse(RehearseOptions options);

/// Prints what devices will do with a spec, and the mistakes in it.
int runCheck(CheckCommandOptions options);
