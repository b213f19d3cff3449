// A Lua table as plain data, once Lua is through with it, and the strings that a text may read as fields of the table `vars`,
// given by whoever evaluates it.

#pragma once

#include "host/fault.h"
#include "host/handles.h"

#include <lua.hpp>
#include <map>
#include <set>
#include <string>
#include <vector>

using LuaState = Handle<lua_State, lua_close>;

struct LuaField;

struct LuaValue {
    enum Kind { eNil, eBoolean, eNumber, eString, eTable, eOther };
    Kind kind = eNil;
    double number = 0;             // eNumber
    std::string text;              // eString
    std::vector<LuaValue> items;   // eTable: entries [1], [2], ... up to the first nil
    std::vector<LuaField> fields;  // eTable: everything else, ordered by name
};

struct LuaField {
    std::string name;  // of a key that is no text: in brackets, as in "[7]"
    LuaValue value;
};

/// The Lua name of the table.
constexpr char kVariablesName[] = "vars";

struct LuaVariables {
    std::map<std::string, std::string> values;  // by name
    std::set<std::string> read;                 // the names of `values` that the text has read
};

/// Evaluates a text as the device does, as one expression that can reach nothing.
/// \param name the text's file, for messages.
/// \param variables what the text, which no device evaluates, reads besides; null: nothing.
/// \return EINVAL with a message that names file and line; as of doWithinLimits().
Fault evaluateLua(const std::string& name, const std::string& text, LuaValue* value,
                  LuaVariables* variables = nullptr);

/// \return the field's value; null if there is none.
const LuaValue* findField(const LuaValue& table, const std::string& name);

/// Takes "NAME=VALUE" for each. A name is a Lua name, a value is not empty, and no name comes twice.
Fault parseVariables(const std::vector<std::string>& assignments, LuaVariables* variables);

/// Gives the next chunk that `L` runs the variables as its only global name. A field that is not set raises an error
/// that names it and the line. `variables` must outlive the run.
void provideVariables(lua_State* L, LuaVariables* variables);

/// \return whether Lua's message about a text that it ran without variables says that the text reads them.
bool readsVariables(const std::string& luaMessage);

/// \return a fault of the first variable that was not read: most likely its name is mistyped.
Fault refuseUnread(const std::string& file, const LuaVariables& variables);
