// One call of a tool.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace rovusim {

struct ToolCall {
    std::string tool;               // the name by which it was called
    std::vector<std::string> args;  // without the name
    char** argv = nullptr;          // of main(), with the name
    int argc = 0;
    bool half = false;  // a volume update stops half way
};

/// Does a tool's work.
/// \return the exit status.
using ToolWork = int (*)(const ToolCall& call);

/// The exit status of the real UBI tools on every failure: -1, which a parent sees as 255.
constexpr int kUbiFailure = 255;

/// Prints "TOOL: error!: TEXT" and, for an error other than 0, its number and name, as the UBI tools do.
/// \return kUbiFailure
int ubiError(const ToolCall& call, const std::string& text, int error);

}  // namespace rovusim
