// Fields of a Lua table into plain values. No object with a destructor lives here: every function can
// leave through a longjmp.

#include "lua_util/field_readers.h"

#include <cstring>

namespace {

// A conversion of a number that the type cannot hold is undefined, so the range is tested first. A NaN is no
// number to isNumeric() and never comes here.
int32_t saturate(lua_Number number) {
    if (number >= static_cast<lua_Number>(INT32_MAX)) return INT32_MAX;
    if (number <= static_cast<lua_Number>(INT32_MIN)) return INT32_MIN;
    return static_cast<int32_t>(number);
}

bool isNumeric(lua_State* L, int index) {
    if (lua_isnumber(L, index) == 0) return false;
    const lua_Number number = lua_tonumber(L, index);
    return number == number;
}

}  // namespace

size_t getStringField(lua_State* L, int index, const char* name, char* destination, size_t size,
                      bool optional) {
    lua_getfield(L, index, name);
    size_t length = 0;
    const char* value = lua_tolstring(L, -1, &length);
    if (value != nullptr) {
        if (length >= size) luaL_error(L, "String too long: %s", value);
        memcpy(destination, value, length + 1);
    } else if (optional && lua_isnil(L, -1)) {
        length = 0;
        destination[0] = '\0';
    } else {
        luaL_error(L, "Invalid string for field \"%s\"", name);
    }
    lua_pop(L, 1);
    return length;
}

int32_t getIntField(lua_State* L, int index, const char* name, int32_t defaultValue) {
    lua_getfield(L, index, name);
    int32_t value = defaultValue;
    if (isNumeric(L, -1)) {
        value = saturate(lua_tonumber(L, -1));
    } else if (!lua_isnil(L, -1) || defaultValue == REQUIRED_FIELD) {
        luaL_error(L, "Value for \"%s\" is not a number.", name);
    }
    lua_pop(L, 1);
    return value;
}

int getEnumValue(lua_State* L, int index, const char* list, char separator, const char* name,
                 int32_t defaultValue) {
    if (lua_isnil(L, index)) {
        if (defaultValue == REQUIRED_FIELD) luaL_error(L, "Missing enum value for \"%s\"", name);
        return defaultValue;
    }
    size_t length = 0;
    const char* value = lua_tolstring(L, index, &length);
    const int token = findEnumToken(value, length, list, separator);
    if (token < 0) {
        luaL_error(L, "Bad enum value for %s: %s (expected one of %s)", name,
                   value == nullptr ? "null" : value, list);
    }
    return token;
}

int findEnumToken(const char* value, size_t length, const char* list, char separator) {
    if (value == nullptr || length == 0) return -1;
    const char* token = list;
    for (int i = 0;; ++i) {
        const char* end = token;
        while (*end != '\0' && *end != separator)
            ++end;
        if (static_cast<size_t>(end - token) == length && memcmp(token, value, length) == 0) return i;
        if (*end == '\0') return -1;
        token = end + 1;
    }
}
