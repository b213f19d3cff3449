// One call of a simulated tool, and the tools themselves.
//
// They run outside the device, each call in a process of its own, with the standard streams of the tool inside. Nothing
// that comes from inside is taken as a path of the host: only the state directory's own files are opened here.
#pragma once

#include "rovu_sim/tool_channel.h"

#include <cstdint>
#include <string>
#include <vector>

namespace rovusim {

struct ToolCall {
    std::string stateDir;
    std::string tool;               // the name by which it was called
    std::vector<std::string> args;  // without the name
    char** argv = nullptr;          // with the name, for getopt
    int argc = 0;
    int image = -1;              // open on the last argument; -1: it is no file that can be read
    bool half = false;           // a volume update stops half way
    ToolReply* reply = nullptr;  // for a change of a node under /dev
};

/// Does a tool's work.
/// \return the exit status.
using ToolWork = int (*)(const ToolCall& call);

/// The exit status of the real UBI tools on every failure: -1, which a parent sees as 255.
constexpr int kUbiFailure = 255;

/// Prints "TOOL: error!: TEXT" and, for an error other than 0, its number and name, as the UBI tools do.
/// \return kUbiFailure
int ubiError(const ToolCall& call, const std::string& text, int error);

int ubinfo(const ToolCall& call);
int ubirmvol(const ToolCall& call);
int ubimkvol(const ToolCall& call);
int ubiupdatevol(const ToolCall& call);
int fwPrintenv(const ToolCall& call);
int fwSetenv(const ToolCall& call);
int readPlatform(const ToolCall& call);
/// Checks the command line. The tool inside ends the processes; killall succeeds as if the device's daemons, which do not
/// exist, had been running.
int killAll(const ToolCall& call);
/// Nothing restarts; the request is recorded in the state directory.
int reboot(const ToolCall& call);

/// The major number of the character devices. The UBI device's own minor number is 0, a volume's is its id and 1.
constexpr unsigned kUbiMajor = 249;

/// A size of 1 KiB or more in the largest unit that fits, such as "1.2 MiB"; else empty.
std::string inUnits(uint64_t bytes);

/// Parses a size such as 126976, 124KiB or 1MiB.
/// \return whether it is one; `bytes` is written only then.
[[nodiscard]] bool parseBytes(const char* text, uint64_t* bytes);

/// Parses a decimal number.
/// \return whether it is one; `number` is written only then.
[[nodiscard]] bool parseNumber(const char* text, uint32_t* number);

/// Parses the name of a volume's node, such as /dev/ubi0_3, into the volume's id.
/// \return whether it is one; `id` is written only then.
[[nodiscard]] bool parseVolumeNode(const std::string& path, uint32_t* id);

}  // namespace rovusim
