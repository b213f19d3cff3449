// Evaluates in the device's own sandbox, then copies everything out of Lua. The copy makes only calls that do
// not raise, for a raise would skip the destructors of what is half copied.

#include "lua_value.h"

#include "foreign_characters.h"
#include "limited_work.h"
#include "lua_state.h"
#include "lua_util/sandbox.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

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
        value->kind = LuaValue::eText;
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
                name + ": not plain text, or the word \"function\" stands in it, which no device accepts"};
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
