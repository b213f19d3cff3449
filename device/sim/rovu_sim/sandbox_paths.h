// What the launcher and the tools inside a device agree on: names and paths, and the start of process 1.
#pragma once

namespace rovusim {

constexpr const char* kStateInside = "/run/rovu-sim/state";
constexpr const char* kChannelInside = "/run/rovu-sim/channel";
constexpr const char* kToolInside = "/run/rovu-sim/bin/rovu-sim-tool";
constexpr const char* kRealShellInside = "/run/rovu-sim/bin/sh";
/// The name by which the tools' program is process 1.
constexpr const char* kInitInside = "/run/rovu-sim/bin/rovu-sim-init";
/// Where a program of the workstation stands inside, with its loader and libraries.
constexpr const char* kProgramInside = "/run/rovu-sim/program";
constexpr const char* kUbiDevice = "/dev/ubi0";
/// Where the shell and the pass-through tools look for the real programs; it has no simulated tool.
constexpr const char* kRealPath = "/usr/sbin:/usr/bin:/sbin:/bin";
/// The PATH of a command inside.
constexpr const char* kPathInside = "/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

/// The words of process 1, after its name. The command's own words follow.
enum InitWord {
    eWordSocket = 1,  // descriptor of the socket to the launcher
    eWordFilter,      // of a file with the instructions of the system call filter
    eWordOutput,      // for the command's output and errors; -1: those of the launcher
    eWordMask,        // the command's blocked signals, as a hexadecimal number
    eWordFolder,      // the command's working directory; / if it is not there
    eWordHint,        // what to say if the command is not there
    eWordProgram,     // a path, or a name to look up in PATH
    eWordCommand,     // the first of the command's words
};

/// Exit statuses of a run that are not the command's own. The two of a program that does not start are a tool's, too.
constexpr int kExitLimit = 124;  // a limit ended it
constexpr int kExitSetupFailed = 125;
constexpr int kExitCannotRun = 126;
constexpr int kExitNotFound = 127;
constexpr int kExitSignalBase = 128;  // plus the signal that killed the command

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
