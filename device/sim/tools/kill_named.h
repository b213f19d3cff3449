// The part of killall that only a process inside can do.
#pragma once

#include "tools/real_program.h"

namespace rovusim {

/// Sends a signal to all processes, but for process 1 and this one, whose names are among the words. Options other than
/// a signal are left out. See killall(1).
void killNamed(const ToolCallInside& call);

}  // namespace rovusim
