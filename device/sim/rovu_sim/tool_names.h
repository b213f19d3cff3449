// The commands that the stand-in device plays or watches.
#pragma once

namespace rovusim {

/// Played over the state directory; nothing of the host is run for them.
constexpr const char* kStandIns[] = {
    "ubinfo",    "ubirmvol", "ubimkvol",        "ubiupdatevol", "fw_printenv",
    "fw_setenv", "killall",  "readplatform.sh", "reboot",
};

/// Recorded, then handed to the host's own program.
constexpr const char* kPassThroughs[] = {"tar", "cat", "rm", "md5sum", "sha256sum"};

/// The shell with a script file; a shell with `-c` is neither recorded nor counted.
constexpr const char* kShellTool = "sh";

}  // namespace rovusim
