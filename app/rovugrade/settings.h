// What the command line says, for the whole of a run, and the two paths that nothing changes.

#pragma once

#include <cstdint>

/// The run's scratch directory. Its existence means that a run is active, and locks out a second one.
constexpr char kWorkDir[] = "/tmp/rovu";

/// The report for other programs. It lies beside the work directory, in the same file system, and outlives
/// the run.
constexpr char kProgressPath[] = "/tmp/rovu.progress";

/// Word on the command line in place of a key's path: the spec's signature is not verified.
constexpr char kNoKey[] = "NONE";

extern const char* upgradeUrl;  // an argument of the command line itself
extern const char* keyPath;     // public key file; null once kNoKey has been seen
extern uint32_t verbosity;      // how many times -v was given
extern bool dryRun;             // fetch, run and flash nothing
extern bool moistRun;           // do all but the switch to the new set

/// Whether libcurl is to talk.
inline bool isVerboseTransfer() {
    return verbosity >= 2;
}
