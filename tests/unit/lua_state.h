// Lua expressions through the sandbox.

#pragma once

#include "lua_util/sandbox.h"

#include <functional>
#include <lua.hpp>
#include <string>
#include <vector>

/// A Lua state with the base library, as a run opens it.
struct LuaState {
    LuaState() { lua_cpcall(lua, luaopen_base, nullptr); }
    ~LuaState() {
        if (lua != nullptr) lua_close(lua);
    }
    LuaState(const LuaState&) = delete;
    LuaState& operator=(const LuaState&) = delete;

    /// Evaluates `expression` in a buffer of exactly the size that it needs, or of `missing` bytes less.
    int load(const std::string& expression, size_t missing = 0) {
        std::vector<char> buffer(expression.begin(), expression.end());
        buffer.resize(expression.size() + kWrapSize, 'x');
        return loadDataChunk(lua, buffer.data(), expression.size(), buffer.size() - missing);
    }

    /// Runs `body`, which must not change the stack, in a protected call with the evaluated value on top.
    /// \return the message that was raised; empty if there was none.
    std::string raisedBy(const std::function<void()>& body) {
        const auto call = [](lua_State* state) {
            lua_getfield(state, LUA_REGISTRYINDEX, kChunkValueKey);
            (*static_cast<const std::function<void()>*>(lua_touserdata(state, 1)))();
            return lua_gettop(state) == 2 ? 0 : luaL_error(state, "the stack has changed");
        };
        if (lua_cpcall(lua, call, const_cast<std::function<void()>*>(&body)) == 0) return "";
        const std::string message = lua_tostring(lua, -1);
        lua_pop(lua, 1);
        return message;
    }

    lua_State* lua = luaL_newstate();
};
