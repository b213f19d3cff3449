// How a run of a tool ends early: signals, at which long work stops at its next piece and cleans up after itself, and the
// folders that a killed run left behind.

#pragma once

#include "host/fault.h"
#include "util/descriptor.h"

#include <string>

/// From now on SIGINT, SIGTERM and SIGHUP only note that they came. A second one of a kind ends the program at once.
void noteInterruptions();

/// To be called regularly during long work.
/// \return EINTR once a signal has come.
Fault interruption();

/// Ends the program by the signal that was received, if any, as its sender expects.
void endByNotedSignal();

/// Removes the folders in `parent` whose names begin with `prefix`, which belong to this user, and which nobody has locked.
/// Follows no links.
void removeLeftovers(const std::string& parent, const std::string& prefix);

/// Makes and locks a folder that only its owner can enter, PARENT/PREFIXxxxxxx. It is no leftover as long as `lock` is open.
/// \return 0, or an errno value.
[[nodiscard]] int makeLockedFolder(const std::string& parent, const std::string& prefix,
                                   zem::Descriptor* lock, std::string* path);
