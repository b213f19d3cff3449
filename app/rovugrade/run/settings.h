// What the command line says, for the whole of a run.

#pragma once

#include <cstdint>

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
