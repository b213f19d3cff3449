// Readers for the fields of a Lua table, for use inside a protected call: to raise is to call
// luaL_error(), which does not return.

#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <lua.hpp>

/// As a default value: the field has no default and must be there.
constexpr int32_t REQUIRED_FIELD = INT32_MIN;

/// Copies the string in field `name` of the table at `index`, with its terminator, to `destination`, which takes
/// at most `size` - 1 bytes. A number counts as the string that Lua makes of it. With `optional`, an absent field
/// gives the empty string. Leaves the Lua stack unchanged.
/// \return the length. Raises if the field is absent, of another type or too long.
size_t getStringField(lua_State* L, int index, const char* name, char* destination, size_t size,
                      bool optional);

/// Reads the number, or the string that is one, in field `name` of the table at `index`, truncated towards
/// zero; a number out of range gives the nearest value. Leaves the Lua stack unchanged.
/// \param defaultValue the result for an absent field; REQUIRED_FIELD: raise instead.
/// \return the value. Raises for everything else, also for a NaN (0/0).
[[nodiscard]] int32_t getIntField(lua_State* L, int index, const char* name, int32_t defaultValue);

/// Finds the value at `index`, which its caller pushed and will pop, in a list of tokens.
/// \param name the field's name, for messages.
/// \param defaultValue the result for nil; REQUIRED_FIELD: raise instead.
/// \return the token's index from 0. Raises if the value is none of them.
[[nodiscard]] int getEnumValue(lua_State* L, int index, const char* list, char separator, const char* name,
                               int32_t defaultValue);

/// Finds the `length` bytes at `value` among the tokens of `list`; case and whitespace count.
/// \return the index of the first equal token, from 0; -1 if there is none, or for a null or empty value.
[[nodiscard]] int findEnumToken(const char* value, size_t length, const char* list, char separator);
