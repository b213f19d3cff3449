// The environment of a chunk is made, empty, by the device's own sandbox just before the chunk runs. A hook on the call
// of the chunk puts the table in: the sandbox itself stays the device's, with all that it refuses.
//
// Lua's errors are longjmps: no object with a destructor lives across a call that can raise.

#include "lua_variables.h"

#include "nearest_word.h"

#include <cctype>
#include <cerrno>
#include <cstring>

namespace {

constexpr char kRegistryKey[] = "rovu-pack variables";

bool isLuaName(const std::string& name) {
    for (const char c : name) {
        if (isalnum(static_cast<unsigned char>(c)) == 0 && c != '_') return false;
    }
    return !name.empty() && isdigit(static_cast<unsigned char>(name[0])) == 0;
}

std::vector<std::string> namesOf(const std::map<std::string, std::string>& values) {
    std::vector<std::string> names;
    names.reserve(values.size());
    for (const auto& entry : values)
        names.push_back(entry.first);
    return names;
}

// Pushes why there is no such variable.
void pushComplaint(lua_State* L, const LuaVariables& variables, const char* name) {
    const std::string nearest = nearestWord(name, namesOf(variables.values));
    const std::string other = nearest.empty() ? "" : ", but " + nearest + " is";
    const std::string message =
        "vars." + std::string(name) + " is not set" + other + "; give --set " + name + "=VALUE";
    lua_pushlstring(L, message.data(), message.size());
}

// The value of a variable, noted as read; null if there is none.
const std::string* readVariable(LuaVariables* variables, const char* name) {
    const auto found = variables->values.find(name);
    if (found == variables->values.end()) return nullptr;
    variables->read.insert(found->first);
    return &found->second;
}

// The table's __index.
int index(lua_State* L) {
    lua_getfield(L, LUA_REGISTRYINDEX, kRegistryKey);
    auto* variables = static_cast<LuaVariables*>(lua_touserdata(L, -1));
    if (lua_type(L, 2) != LUA_TSTRING) return luaL_error(L, "a field of vars is a name, as in vars.version");
    const char* name = lua_tostring(L, 2);
    if (const std::string* value = readVariable(variables, name)) {
        lua_pushlstring(L, value->data(), value->size());
        return 1;
    }
    luaL_where(L, 1);
    pushComplaint(L, *variables, name);
    lua_concat(L, 2);
    return lua_error(L);
}

// At the first call of a chunk.
void enterChunk(lua_State* L, lua_Debug* call) {
    lua_getinfo(L, "Sf", call);
    if (strcmp(call->what, "main") != 0) return lua_settop(L, -2);
    lua_sethook(L, nullptr, 0, 0);
    lua_getfenv(L, -1);
    lua_createtable(L, 0, 0);
    lua_createtable(L, 0, 1);
    lua_pushcfunction(L, index);
    lua_setfield(L, -2, "__index");
    lua_setmetatable(L, -2);
    lua_setfield(L, -2, kVariablesName);
    lua_settop(L, -3);
}

}  // namespace

Fault parseVariables(const std::vector<std::string>& assignments, LuaVariables* variables) {
    for (const std::string& assignment : assignments) {
        const size_t equals = assignment.find('=');
        const std::string name = assignment.substr(0, equals);
        const std::string head = "--set " + assignment + ": ";
        if (equals == std::string::npos) return {EINVAL, head + "NAME=VALUE is required"};
        if (!isLuaName(name))
            return {EINVAL, head + "a name has letters, digits and underscores, and begins with no digit"};
        if (equals + 1 == assignment.size()) return {EINVAL, head + "the value is empty; give one"};
        if (!variables->values.emplace(name, assignment.substr(equals + 1)).second)
            return {EINVAL, head + "the name is there twice; keep one"};
    }
    return {};
}

void provideVariables(lua_State* L, LuaVariables* variables) {
    lua_pushlightuserdata(L, variables);
    lua_setfield(L, LUA_REGISTRYINDEX, kRegistryKey);
    lua_sethook(L, enterChunk, LUA_MASKCALL, 0);
}

bool readsVariables(const std::string& luaMessage) {
    return luaMessage.find("global 'vars'") != std::string::npos;
}

Fault refuseUnread(const std::string& file, const LuaVariables& variables) {
    for (const auto& variable : variables.values) {
        if (variables.read.count(variable.first) != 0) continue;
        const std::vector<std::string> read(variables.read.begin(), variables.read.end());
        const std::string nearest = nearestWord(variable.first, read);
        return {EINVAL, "--set " + variable.first + ": nothing in " + file + " reads vars." + variable.first +
                            (nearest.empty() ? "; read it there, or leave the option out"
                                             : "; did you mean " + nearest + "?")};
    }
    return {};
}
