// What the command line says, for the whole of a run; the run's work directory, and the names of what lies in it.

#pragma once

#include <cstdint>

/// The public key file, unless the command line names another.
constexpr char kPublicKeyPath[] = "/etc/ssh/rovu_pub.pem";

/// In place of a key file's path on the command line: the spec's signature is not verified.
constexpr char kNoKey[] = "NONE";

extern const char* upgradeUrl;  // an argument of the command line itself
extern const char* keyPath;     // public key file; null once kNoKey has been seen
extern uint32_t verbosity;      // how many times -v was given
extern bool dryRun;             // fetch, run and flash nothing
extern bool moistRun;           // do all but the switch to the new set

/// Whether libcurl is to be verbose.
inline bool isVerboseTransfer() {
    return verbosity >= 2;
}

// A macro, so that every path and command line with it is made by the compiler: some are used without memory.
#define ROVU_WORK_DIR "/tmp/rovu"

/// The work directory. Its existence means that a run is active, and locks out a second one.
constexpr char kWorkDir[] = ROVU_WORK_DIR;

/// The command that removes it, with all that is in it.
constexpr char kRemoveWorkDir[] = "rm -Rf '" ROVU_WORK_DIR "'";

/// The report for other programs. It is next to the work directory, in the same file system, and outlives
/// the run.
constexpr char kProgressPath[] = "/tmp/rovu.progress";

/// The next report, until it takes the place of the last one.
constexpr char kNextProgressPath[] = ROVU_WORK_DIR "/progress.tmp";

// Names in the work directory. An image's tar is named by its part (UpdateSpecVer1::Image::localName), the staging
// copy of a volume by the UBI tools (kStagingName).
constexpr char kSpecName[] = "rovu.lua";
constexpr char kScriptTar[] = "scriptTar";
