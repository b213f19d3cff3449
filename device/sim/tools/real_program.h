// Handing a call on to the host's own program.
#pragma once

#include "tools/tool_call.h"

namespace rovusim {

/// Becomes the host's program of the call's name, and does not return unless that fails; with `half` set,
/// runs it as a child, so that the exit status can be another one.
int passThrough(const ToolCall& call);

/// The same for the shell.
int runRealShell(const ToolCall& call);

}  // namespace rovusim
