// The reader stops at the first fault, and its error does not always say where that is. So it is called
// again and again: the value whose replacement clears the error is at fault.

#include "spec_view/refused_key.h"

#include "lua_util/sandbox.h"
#include "spec_view/spec_view.h"
#include "update_spec/spec_reader.h"

namespace {

std::string complaintOf(lua_State* L) {
    ParseSpecResult result = {0, nullptr};
    std::string complaint;
    if (lua_cpcall(L, parseSpec, &result) != 0) {
        if (const char* text = lua_tostring(L, -1)) complaint = text;
        lua_pop(L, 1);
    }
    freeSpec(result.spec);
    return complaint;
}

// Any value that the reader accepts. It does not check whether a string makes sense.
void pushGoodValue(lua_State* L, const std::string& key) {
    if (key == "dep") return lua_pushnil(L);
    lua_pushstring(L, key == "type" ? "kernel" : key == "update" ? "mandatory" : "1");
}

// Each search is in the table on top of Lua's stack.
struct Search {
    lua_State* L;
    std::string complaint;

    bool isGone() const { return complaintOf(L) != complaint; }

    // Removes entries from the end until the error is gone, and puts the last one back. \return its number, or 0.
    int entry() const {
        for (int i = static_cast<int>(lua_objlen(L, -1)); i > 0; --i) {
            lua_rawgeti(L, -1, i);
            lua_pushnil(L);
            lua_rawseti(L, -3, i);
            const bool found = isGone();
            if (found) {
                lua_rawseti(L, -2, i);
                return i;
            }
            lua_pop(L, 1);
        }
        return 0;
    }

    std::string field(const std::vector<std::string>& keys) const {
        for (const std::string& key : keys) {
            lua_getfield(L, -1, key.c_str());
            pushGoodValue(L, key);
            lua_setfield(L, -3, key.c_str());
            const bool found = isGone();
            lua_setfield(L, -2, key.c_str());
            if (found) return key;
        }
        return "";
    }

    std::string path() const {
        const int part = entry();
        std::string own = field(kSpecKeys);
        if (part == 0 || !own.empty()) return own;
        lua_rawgeti(L, -1, part);
        const std::string inside = lua_istable(L, -1) ? field(kImageKeys) : "";
        if (inside.empty()) return std::to_string(part);
        std::string key = std::to_string(part) + "." + inside;
        if (inside != "dep") return key;
        lua_getfield(L, -1, "dep");
        const int triple = lua_istable(L, -1) ? entry() : 0;
        return triple == 0 ? key : key + "." + std::to_string(triple);
    }
};

}  // namespace

std::string refusedKey(LuaState state) {
    if (state == nullptr) return "";
    lua_State* L = state.get();
    const Search search = {L, complaintOf(L)};
    lua_getfield(L, LUA_REGISTRYINDEX, kChunkValueKey);
    return search.complaint.empty() || !lua_istable(L, -1) ? "" : search.path();
}
