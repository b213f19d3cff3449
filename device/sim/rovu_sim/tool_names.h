// The commands that the simulator provides or records.
#pragma once

namespace rovusim {

/// Simulated on the state directory, without any program of the host.
constexpr const char* kSimulatedTools[] = {
    "ubinfo",    "ubirmvol", "ubimkvol",        "ubiupdatevol", "fw_printenv",
    "fw_setenv", "killall",  "readplatform.sh", "reboot",
};

/// Recorded, then run by the host's own program.
constexpr const char* kPassThroughs[] = {"tar", "cat", "rm", "md5sum", "sha256sum"};

/// The shell with a script file. A shell with `-c` is neither recorded nor counted.
constexpr const char* kShellTool = "sh";

}  // namespace rovusim
