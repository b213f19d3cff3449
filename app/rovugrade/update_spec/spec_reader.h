// Reads the evaluated table into the spec's record, field by field, and stops at the first fault.
//
// A fault raises a Lua error, which unwinds to the one protected call: no object with a destructor lives in the
// reader, and whatever is not yet reachable from the result is released before an error is raised.

#pragma once

#include "update_spec/spec.h"

#include <lua.hpp>

/// The result of parseSpec().
struct ParseSpecResult {
    int error;             // 0 or ENOMEM
    UpdateSpecVer1* spec;  // as far as it has been read; null if not even the record could be made
};

/// Reads the value that loadDataChunk() left in `L`, and closes `L` in every case.
/// \return the spec, which the caller releases with freeSpec(); null after logging.
[[nodiscard]] UpdateSpecVer1* readSpec(lua_State* L);

/// For lua_cpcall(): the light userdata points at a ParseSpecResult. Raises on faulty data; out of memory is
/// no Lua error but an `error` of the result.
int parseSpec(lua_State* L);
