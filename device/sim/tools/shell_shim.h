// Calls of the shell, whose place /bin/sh this binary takes.
#pragma once

namespace rovusim {

/// Whether this call is a shell with a script file on its command line, `sh FILE`. Such a call is recorded
/// and can be made to fail. Every other use of the shell is not: `-c`, a script on standard input, a script
/// that names the shell in its first line, another name of the same program.
bool isShellWithScript(int argc, char** argv);

}  // namespace rovusim
