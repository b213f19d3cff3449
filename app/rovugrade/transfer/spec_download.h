// The spec from its URL into a sandbox: fetched, authenticated, evaluated. Nothing is evaluated that was not verified
// first.

#pragma once

#include <lua.hpp>
#include <string>

/// Enters the state eStateDownloadingSpec, fetches the spec of `upgradeUrl` into `workDir`, checks its signature with
/// the key of `keyPath`, and evaluates it.
/// \return the Lua state with the spec's value, for readSpec(); null after a failure.
[[nodiscard]] lua_State* downloadSpec(const std::string& workDir);
