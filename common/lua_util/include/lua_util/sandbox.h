// Lua text as pure data: one expression, evaluated where it can reach nothing.
//
// The sandbox rests on four facts, and nothing else stands behind them:
// - the text is wrapped in "return (" and ")", which leaves room for one expression and no statement;
// - the chunk's environment is empty, so every global name reads as nil and nothing can be called;
// - a binary chunk is refused by its first byte;
// - a text in which the word "function" comes first as a word of its own is refused.
// The last one looks at the first occurrence only, in strings and comments too. Time and memory that
// an expression takes are not limited.

#pragma once

#include <cstddef>
#include <lua.hpp>

/// The registry key under which the value of the text waits for its reader.
constexpr char kChunkValueKey[] = "X";

/// What the wrap adds to a text, with the terminating NUL.
constexpr size_t kWrapSize = 10;

/// Evaluates the `length` bytes of Lua text at `buffer` and leaves the value in the registry of `L`, under
/// kChunkValueKey. The text is wrapped in place, for which `capacity` must exceed `length` by kWrapSize.
/// \return 0; EILSEQ: a binary chunk, or the word "function"; ENOBUFS: no room for the wrap; EBADRQC: the
///         evaluation failed, and the error value lies on top of the Lua stack.
int loadDataChunk(lua_State* L, char* buffer, size_t length, size_t capacity);

/// For lua_cpcall(): evaluates a wrapped text. The light userdata points at a `const char*` that holds the
/// text's address. Raises on failure.
int runSandboxed(lua_State* L);
