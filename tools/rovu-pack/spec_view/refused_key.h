// Which value of a spec the device's reader refuses.

#pragma once

#include "spec_view/lua_value.h"

#include <string>

/// \param state as evaluateSpec() made it; null is refused as a whole.
/// \return the path of the value at which the reader stops, as "3.url", even if the value is missing; empty
///         if there is none.
std::string refusedKey(LuaState state);
