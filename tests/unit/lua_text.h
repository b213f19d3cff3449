// Lua texts through the sandbox.

#pragma once

#include "lua_util/sandbox.h"

#include <functional>
#include <lua.hpp>
#include <string>
#include <vector>

/// A Lua state with the base library, as a run opens it.
struct LuaState {
    LuaState() { lua_cpcall(L, luaopen_base, nullptr); }
    ~LuaState() {
        if (L != nullptr) lua_close(L);
    }

    /// Evaluates `text` in a buffer of exactly the size that it needs, or of `missing` bytes less.
    int load(const std::string& text, size_t missing = 0) {
        std::vector<char> buffer(text.begin(), text.end());
        buffer.resize(text.size() + kWrapSize, 'x');
        return loadDataChunk(L, buffer.data(), text.size(), buffer.size() - missing);
    }

    /// Runs `body`, which must not change the stack, in a protected call with the evaluated value on top.
    /// \return the message that was raised; empty if there was none.
    std::string raisedBy(const std::function<void()>& body) {
        const auto call = [](lua_State* state) {
            lua_getfield(state, LUA_REGISTRYINDEX, kChunkValueKey);
            (*static_cast<const std::function<void()>*>(lua_touserdata(state, 1)))();
            return lua_gettop(state) == 2 ? 0 : luaL_error(state, "the stack has changed");
        };
        if (lua_cpcall(L, call, const_cast<std::function<void()>*>(&body)) == 0) return "";
        const std::string message = lua_tostring(L, -1);
        lua_pop(L, 1);
        return message;
    }

    lua_State* L = luaL_newstate();
};
