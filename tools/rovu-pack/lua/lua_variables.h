// Strings that a Lua text reads as fields of the table `vars`, given by whoever evaluates it.

#pragma once

#include "fault.h"

#include <lua.hpp>
#include <map>
#include <set>
#include <string>
#include <vector>

/// The Lua name of the table.
constexpr char kVariablesName[] = "vars";

struct LuaVariables {
    std::map<std::string, std::string> values;  // by name
    std::set<std::string> read;                 // the names of `values` that the text has read
};

/// Takes "NAME=VALUE" for each. A name is a Lua name, a value is not empty, and no name comes twice.
Fault parseVariables(const std::vector<std::string>& assignments, LuaVariables* variables);

/// Gives the next chunk that `L` runs the variables as its only global name. A field that is not set raises an error
/// that names it and the line. `variables` must outlive the run.
void provideVariables(lua_State* L, LuaVariables* variables);

/// \return whether Lua's message about a text that it ran without variables says that the text reads them.
bool readsVariables(const std::string& luaMessage);

/// \return a fault of the first variable that was not read: most likely its name is mistyped.
Fault refuseUnread(const std::string& file, const LuaVariables& variables);
