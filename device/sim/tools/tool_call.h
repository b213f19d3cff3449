// One call of a tool, as the tool's own work sees it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace rovusim {

struct ToolCall {
    std::string tool;               // the name it was called by
    std::vector<std::string> args;  // without the name
    char** argv = nullptr;          // the same as the kernel gave them, with the name
    int argc = 0;
    bool half = false;  // a volume update stops half way
};

/// Does a tool's work. \return the exit status.
using ToolWork = int (*)(const ToolCall& call);

/// The real UBI tools exit with -1 on every failure, which arrives as this.
constexpr int kUbiFailure = 255;

/// Prints "TOOL: error!: TEXT" and, for an error other than 0, its number and name, as the UBI tools do.
/// \return kUbiFailure
int ubiError(const ToolCall& call, const std::string& text, int error);

}  // namespace rovusim
