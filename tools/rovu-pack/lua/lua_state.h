// The owner of a Lua state.

#pragma once

#include "handles.h"

#include <lua.hpp>

using LuaState = Handle<lua_State, lua_close>;
