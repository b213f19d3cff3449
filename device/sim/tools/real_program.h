// What a call of a tool does inside, once the launcher has answered: become the real program, end processes.
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

/// Sends a signal to all processes, but for process 1 and this one, whose names are among the words. Options other than
/// a signal are left out. See killall(1).
void killNamed(const ToolCallInside& call);

/// Whether this call is a shell with a script file on its command line, `sh FILE`. Such a call is recorded
/// and can be made to fail. Every other use of the shell is not: `-c`, a script on standard input, a script
/// that names the shell in its first line, another name of the same program.
bool isShellWithScript(int argc, char** argv);

}  // namespace rovusim
