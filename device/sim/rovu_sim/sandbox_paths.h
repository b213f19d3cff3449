// Paths inside the device that the launcher and the tools share.
#pragma once

namespace rovusim {

constexpr const char* kHomeInside = "/run/rovu-sim";
constexpr const char* kStateInside = "/run/rovu-sim/state";
constexpr const char* kChannelInside = "/run/rovu-sim/channel";
constexpr const char* kToolInside = "/run/rovu-sim/bin/rovu-sim-tool";
constexpr const char* kRealShellInside = "/run/rovu-sim/bin/sh";
constexpr const char* kUbiDevice = "/dev/ubi0";
/// Where the shell and the pass-through tools look for the real programs; it has no simulated tool.
constexpr const char* kRealPath = "/usr/sbin:/usr/bin:/sbin:/bin";
/// The PATH of a command inside.
constexpr const char* kPathInside = "/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

}  // namespace rovusim
