// Limits for work on untrusted input: a spec or a manifest can have infinite loops, and tables and strings
// that fill the memory.
//
// The work is tried in a child first. A hook on Lua's instructions would not do: the device's code makes its Lua state
// itself, and it is code in C that follows a table into itself, or a list to a length that nobody wrote.

#pragma once

#include "host/fault.h"

#include <functional>

/// Does `work` here, if it has ended within the limits in a child: a second of processor time. Here and there it gets 64
/// MiB of memory more than the process has. It must do the same both times, and leave no trace but in memory.
/// \return isBeyondLimits(), with nothing done; EINTR: a signal has come; a fault of starting the child.
Fault doWithinLimits(const std::function<void()>& work);

/// The fault of work that exceeds the limits; its message says what to do.
Fault beyondLimits();

bool isBeyondLimits(const Fault& fault);
