// Evaluates in the device's own sandbox, then copies everything out of Lua. The copy makes only calls that do
// not raise, because a raise would skip the destructors of a partial copy.
//
// The environment of a chunk is made, empty, by the device's own sandbox just before the chunk runs. A hook on the call
// of the chunk puts the table in: the sandbox itself stays the device's, with all that it refuses.
//
// Lua's errors are longjmps: no object with a destructor lives across a call that can raise.

#include "spec_view/lua_value.h"

#include "host/limited_work.h"
#include "lua_util/sandbox.h"
#include "spec_view/lua_value.h"
#include "spec_view/words.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr int kStackPerLevel = 4;
constexpr size_t kMostValues =
    10000;  // a spec of the largest size has 4096, and the rules compare many with all others
constexpr char kOutOfMemory[] = "not enough memory";  // of Lua

std::string textAt(lua_State* L, int index) {
    size_t length = 0;
    const char* text = lua_tolstring(L, index, &length);
    return text == nullptr ? "" : std::string(text, length);
}

std::string keyName(lua_State* L, int index) {
    char text[40];
    switch (lua_type(L, index)) {
    case LUA_TSTRING:
        return textAt(L, index);
    case LUA_TNUMBER:  // not lua_tolstring(): that would turn the key itself into a text
        snprintf(text, sizeof text, "[%.14g]", lua_tonumber(L, index));
        return text;
    case LUA_TBOOLEAN:
        return lua_toboolean(L, index) != 0 ? "[true]" : "[false]";
    default:
        return "[?]";
    }
}

bool isItemKey(lua_State* L, int index, size_t count) {
    if (lua_type(L, index) != LUA_TNUMBER) return false;
    const lua_Number key = lua_tonumber(L, index);
    return key >= 1 && key <= static_cast<lua_Number>(count) &&
           key == static_cast<lua_Number>(static_cast<size_t>(key));
}

void copyValue(lua_State* L, LuaValue* value, size_t* left);

void copyTable(lua_State* L, LuaValue* value, size_t* left) {
    const int table = lua_gettop(L);
    for (int i = 1; *left != 0; ++i) {
        lua_rawgeti(L, table, i);
        if (lua_isnil(L, -1)) break;
        value->items.emplace_back();
        copyValue(L, &value->items.back(), left);
    }
    lua_settop(L, table);
    lua_pushnil(L);
    while (*left != 0 && lua_next(L, table) != 0) {
        if (isItemKey(L, -2, value->items.size())) {
            lua_settop(L, -2);
            continue;
        }
        LuaField field = {keyName(L, -2), LuaValue()};
        copyValue(L, &field.value, left);
        value->fields.push_back(std::move(field));
    }
    std::sort(value->fields.begin(), value->fields.end(),
              [](const LuaField& a, const LuaField& b) { return a.name < b.name; });
}

// Copies the value on top of the stack, and pops it. `left`: how many more may be copied; once it is 0, nothing is.
void copyValue(lua_State* L, LuaValue* value, size_t* left) {
    --*left;
    switch (lua_type(L, -1)) {
    case LUA_TNIL:
        break;
    case LUA_TBOOLEAN:
        value->kind = LuaValue::eBoolean;
        break;
    case LUA_TNUMBER:
        value->kind = LuaValue::eNumber;
        value->number = lua_tonumber(L, -1);
        break;
    case LUA_TSTRING:
        value->kind = LuaValue::eString;
        value->text = textAt(L, -1);
        break;
    case LUA_TTABLE:
        value->kind = LuaValue::eTable;
        if (lua_checkstack(L, kStackPerLevel) != 0) copyTable(L, value, left);
        break;
    default:
        value->kind = LuaValue::eOther;
        break;
    }
    lua_settop(L, -2);
}

// Lua names a chunk by its beginning; the reader wants the file.
std::string withFileName(const std::string& name, const std::string& message) {
    const std::string afterChunk = "\"]:";
    const size_t at = message.find(afterChunk);
    if (message.compare(0, 8, "[string ") != 0 || at == std::string::npos) return name + ": " + message;
    return name + ":" + message.substr(at + afterChunk.size());
}

Fault evaluate(const std::string& name, const std::string& text, LuaVariables* variables, LuaValue* value) {
    const LuaState state(luaL_newstate());
    if (state == nullptr) {
        return {EINVAL, name + ": no memory for Lua"};
    }
    if (variables != nullptr) provideVariables(state.get(), variables);
    std::string buffer = text + "\n";  // ends a comment on the last line
    const size_t length = buffer.size();
    buffer.resize(length + kWrapSize);
    const int rc = loadDataChunk(state.get(), buffer.data(), length, buffer.size());
    if (rc == EBADRQC) {
        const std::string message = textAt(state.get(), -1);
        if (message == kOutOfMemory) return beyondLimits().of(name);
        const std::string cause = foreignCharacter(text, message);
        if (cause.empty()) return {EINVAL, withFileName(name, message)};
        return {EINVAL, name + ":" + std::to_string(lineInLuaMessage(message)) + ": " + cause};
    }
    if (rc != 0) {
        return {EINVAL,
                name + ": not plain text, or it contains the word \"function\", which no device accepts"};
    }
    lua_getfield(state.get(), LUA_REGISTRYINDEX, kChunkValueKey);
    size_t left = kMostValues;
    copyValue(state.get(), value, &left);
    return left == 0 ? beyondLimits().of(name) : Fault();
}

}  // namespace

Fault evaluateLua(const std::string& name, const std::string& text, LuaValue* value,
                  LuaVariables* variables) {
    Fault outcome;
    LuaValue found;
    const Fault fault = doWithinLimits([&] { outcome = evaluate(name, text, variables, &found); });
    if (fault) return isBeyondLimits(fault) ? fault.of(name) : fault;
    *value = std::move(found);
    return outcome;
}

const LuaValue* findField(const LuaValue& table, const std::string& name) {
    for (const LuaField& field : table.fields) {
        if (field.name == name) return &field.value;
    }
    return nullptr;
}

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
            return {EINVAL,
                    head + "a name has letters, digits and underscores, and does not begin with a digit"};
        if (equals + 1 == assignment.size()) return {EINVAL, head + "the value is empty; give one"};
        if (!variables->values.emplace(name, assignment.substr(equals + 1)).second)
            return {EINVAL, head + "the name is given twice; keep one"};
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
                            (nearest.empty() ? "; read it there, or omit the option"
                                             : "; did you mean " + nearest + "?")};
    }
    return {};
}
