// The real programs behind the names that the simulator records.
#pragma once

#include <string>

namespace rovusim {

struct ToolCallInside {
    std::string tool;  // the name by which it was called, without a folder
    int argc;
    char** argv;
};

/// Becomes the real program of the tool's name; of kShellTool, the real shell.
/// \return the exit status if that fails.
int becomeReal(const ToolCallInside& call);

/// Runs it, and waits for it.
void runReal(const ToolCallInside& call);

}  // namespace rovusim
