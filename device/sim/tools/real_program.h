// Runs the host's own program for a call.
#pragma once

#include "tools/tool_call.h"

namespace rovusim {

/// Replaces this process by the host's program of the call's name, and returns only if that fails. With
/// `half` set, runs it as a child instead, so that the caller can choose the exit status.
/// \return the exit status.
int passThrough(const ToolCall& call);

/// Likewise for the shell.
/// \return the exit status.
int runRealShell(const ToolCall& call);

}  // namespace rovusim
