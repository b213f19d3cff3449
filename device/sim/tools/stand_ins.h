// The tools that are played over the state directory.
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
/// The device's daemons are not there; each is taken to have been running and to have ended.
int killAll(const ToolCall& call);
/// Nothing restarts; the wish is noted for whoever looks at the device.
int reboot(const ToolCall& call);

}  // namespace rovusim
