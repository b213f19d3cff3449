// A Lua chunk as pure data: one expression, evaluated where it can reach nothing.
//
// The sandbox rests on four facts, and there is no other check:
// - the chunk is wrapped in "return (" and ")", which leaves room for one expression and no statement;
// - its environment is empty, so every global name reads as nil and nothing can be called;
// - a binary chunk is refused by its first byte;
// - a chunk whose first "function" is a word of its own is refused.
// The last one looks at the first occurrence only, in strings and comments too. Time and memory that
// an expression takes are not limited.

#pragma once

#include <cstddef>
#include <lua.hpp>

/// The registry key under which the value of the chunk waits for its reader.
constexpr char kChunkValueKey[] = "X";

/// Bytes that the wrap adds to a chunk, with the terminating NUL.
constexpr size_t kWrapSize = 10;

/// Evaluates the `length` bytes of the Lua chunk at `buffer` and leaves the value in the registry of `L`, under
/// kChunkValueKey. The chunk is wrapped in place, for which `capacity` must exceed `length` by kWrapSize.
/// \return 0; EILSEQ: a binary chunk, or the word "function"; ENOBUFS: no room for the wrap; EBADRQC: the
///         evaluation failed, and the error value lies on top of the Lua stack.
[[nodiscard]] int loadDataChunk(lua_State* L, char* buffer, size_t length, size_t capacity);

/// For lua_cpcall(): evaluates a wrapped chunk. The light userdata points at a `const char*` that holds the
/// chunk's address. Raises on failure.
int runSandboxed(lua_State* L);
