// Lua's errors are longjmps: no object with a destructor lives across a call that can raise.

#include "lua_util/sandbox.h"

#include <cctype>
#include <cerrno>
#include <cstring>

namespace {

constexpr char kBytecodeMark = LUA_SIGNATURE[0];
constexpr char kPrefix[] = "return (";
constexpr size_t kPrefixLength = sizeof kPrefix - 1;
constexpr char kForbiddenWord[] = "function";
constexpr size_t kForbiddenLength = sizeof kForbiddenWord - 1;

bool isWordCharacter(char c) {
    return isalnum(static_cast<unsigned char>(c)) != 0;
}

// Only the first occurrence decides: one with a letter or digit on either side is part of a longer word.
bool holdsForbiddenWord(const char* chunk, size_t length) {
    const void* found = memmem(chunk, length, kForbiddenWord, kForbiddenLength);
    if (found == nullptr) return false;
    const char* word = static_cast<const char*>(found);
    if (word != chunk && isWordCharacter(word[-1])) return false;
    const char* next = word + kForbiddenLength;
    return next == chunk + length || !isWordCharacter(*next);
}

void wrapInPlace(char* buffer, size_t length) {
    memmove(buffer + kPrefixLength, buffer, length);
    memcpy(buffer, kPrefix, kPrefixLength);
    buffer[kPrefixLength + length] = ')';
    buffer[kPrefixLength + length + 1] = '\0';
}

}  // namespace

int loadDataChunk(lua_State* L, char* buffer, size_t length, size_t capacity) {
    if (length > 0 && buffer[0] == kBytecodeMark) return EILSEQ;
    if (holdsForbiddenWord(buffer, length)) return EILSEQ;
    if (capacity < kWrapSize || capacity - kWrapSize < length) return ENOBUFS;
    wrapInPlace(buffer, length);
    const char* chunk = buffer;
    return lua_cpcall(L, runSandboxed, &chunk) == 0 ? 0 : EBADRQC;
}

int runSandboxed(lua_State* L) {
    const char* chunk = *static_cast<const char**>(lua_touserdata(L, 1));
    lua_settop(L, 0);
    if (luaL_loadstring(L, chunk) != 0) return lua_error(L);
    lua_createtable(L, 0, 0);
    if (lua_setfenv(L, 1) == 0) return luaL_error(L, "Failed to set sandbox environment");
    lua_call(L, 0, 1);
    lua_setfield(L, LUA_REGISTRYINDEX, kChunkValueKey);
    return 0;
}
