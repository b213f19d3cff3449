// Standing in for /bin/sh.
#pragma once

namespace rovusim {

/// Whether this call is a shell with a script file named on its command line, `sh FILE`. Such a call is
/// recorded and can be made to fail; every other use of the shell is none of the device's business: `-c`, the
/// standard input, a script that names the shell in its first line, another name of the same program.
bool isShellWithScript(int argc, char** argv);

}  // namespace rovusim
