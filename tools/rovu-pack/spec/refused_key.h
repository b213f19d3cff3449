// Which value of a spec the device's reader refuses.

#pragma once

#include <lua.hpp>
#include <string>

/// \param L as evaluateSpec() made it; it is closed.
/// \return the path of the value at which the reader stops, as "3.url", also if it is not there at all; empty
///         if there is none.
std::string refusedKey(lua_State* L);
