// The spec from its URL into a sandbox: fetched, authenticated, evaluated.

#pragma once

#include <lua.hpp>
#include <string>

/// Fetches the spec of `upgradeUrl` into `workDir`, checks its signature with the key of `keyPath`, and
/// evaluates its text. Runs in state eStateDownloadingSpec, which it enters.
/// \return the Lua state with the text's value, for readSpec(); null after a failure.
lua_State* loadSpec(const std::string& workDir);
