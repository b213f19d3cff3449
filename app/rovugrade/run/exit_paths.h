// The exit paths of a run, once its work directory exists: its own result, a signal, or lack of memory.
//
// The work directory is the run's lock, so every path removes it. A signal handler runs on top of code that may hold any
// lock of the C library and may have left the heap half-changed, so it neither returns nor calls exit(): it allocates
// nothing and takes no lock but the log's, which is never held while a signal can arrive.

#pragma once

#include "logging/log.h"

/// The only log channel of the run. The exit handler frees it.
extern LOG_Channel* mainChannel;

/// Creates the work directory, and from there on sees to its removal at exit and after SIGTERM and SIGINT.
/// \return false after logging, if it cannot be created or is there already: another run is active then.
[[nodiscard]] bool takeWorkDir();

/// Settles the outcome of the run: no signal changes it from here on.
void settleOutcome();

/// Makes running out of memory an exit path like the others: state "error", status 1. For failures of operator new;
/// the C allocator's are results like any other.
void endCleanlyWithoutMemory();
