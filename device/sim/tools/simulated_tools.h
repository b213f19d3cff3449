// The tools that are simulated on the state directory. Each returns its exit status.
#pragma once

#include "tools/tool_call.h"

namespace rovusim {

int ubinfo(const ToolCall& call);
int ubirmvol(const ToolCall& call);
int ubimkvol(const ToolCall& call);
int ubiupdatevol(const ToolCall& call);
int fwPrintenv(const ToolCall& call);
int fwSetenv(const ToolCall& call);
int readPlatform(const ToolCall& call);
/// The device's daemons do not exist; killall succeeds as if they had been running.
int killAll(const ToolCall& call);
/// Nothing restarts; the request is recorded in the state directory.
int reboot(const ToolCall& call);

}  // namespace rovusim
