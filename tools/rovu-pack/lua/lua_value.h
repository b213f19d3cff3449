// A Lua table as plain data, once Lua is through with it.

#pragma once

#include "fault.h"
#include "lua_variables.h"

#include <string>
#include <vector>

struct LuaField;

struct LuaValue {
    enum Kind { eNil, eBoolean, eNumber, eText, eTable, eOther };
    Kind kind = eNil;
    double number = 0;             // eNumber
    std::string text;              // eText
    std::vector<LuaValue> items;   // eTable: entries [1], [2], ... up to the first nil
    std::vector<LuaField> fields;  // eTable: everything else, ordered by name
};

struct LuaField {
    std::string name;  // of a key that is no text: in brackets, as in "[7]"
    LuaValue value;
};

/// Evaluates a text as the device does, as one expression that can reach nothing.
/// \param name the text's file, for messages.
/// \param variables what the text, which no device evaluates, reads besides; null: nothing.
/// \return EINVAL with a message that names file and line; as of doWithinLimits().
Fault evaluateLua(const std::string& name, const std::string& text, LuaValue* value,
                  LuaVariables* variables = nullptr);

/// \return the field's value; null if there is none.
const LuaValue* findField(const LuaValue& table, const std::string& name);
