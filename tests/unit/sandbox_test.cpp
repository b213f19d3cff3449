#include "lua_text.h"
#include "lua_util/field_readers.h"
#include "unit_test.h"

namespace {

// The number in the field, or "none" for the message that it is none.
std::string intOf(const std::string& value, int32_t defaultValue) {
    LuaState lua;
    int32_t number = 0;
    EXPECT_EQ(lua.load("{ n = " + value + " }"), 0);
    const std::string message = lua.raisedBy([&] { number = getIntField(lua.L, -1, "n", defaultValue); });
    if (message.empty()) return std::to_string(number);
    return message == "Value for \"n\" is not a number." ? "none" : message;
}

// The field as a destination of 32 bytes takes it, or the message that was raised.
std::string stringOf(const std::string& value, bool optional) {
    LuaState lua;
    std::string text(33, '.');
    size_t length = 0;
    EXPECT_EQ(lua.load("{ s = " + value + " }"), 0);
    const std::string message =
        lua.raisedBy([&] { length = getStringField(lua.L, -1, "s", &text[0], 32, optional); });
    EXPECT_EQ(text.substr(length),
              message.empty() ? "\0"s + std::string(32 - length, '.') : std::string(33, '.'));
    return message.empty() ? text.substr(0, length) : message;
}

// The token's index, the value and "?" for the message that it is no token, or another message.
std::string tokenOf(const std::string& value, int32_t defaultValue) {
    const std::regex bad("Bad enum value for f: (.*) \\(expected one of kernel,rootfs,42\\)");
    LuaState lua;
    int token = 0;
    EXPECT_EQ(lua.load(value), 0);
    const auto read = [&] { token = getEnumValue(lua.L, -1, "kernel,rootfs,42", ',', "f", defaultValue); };
    const std::string message = lua.raisedBy(read);
    return message.empty() ? std::to_string(token) : std::regex_replace(message, bad, "$1?");
}

}  // namespace

TEST(Sandbox, EvaluatesOneExpressionAndNothingElse) {
    const auto valueOf = [](const std::string& text) {
        LuaState lua;
        EXPECT_EQ(lua.load(text), 0) << text;
        EXPECT_EQ(lua_gettop(lua.L), 0);
        lua_getfield(lua.L, LUA_REGISTRYINDEX, "X");
        return luaL_typename(lua.L, -1) + std::to_string(lua_objlen(lua.L, -1));
    };
    expectRows("{ version = 1 } => table0 | {} -- comment\n => table0 | {})\0( => table0 | print => nil0 | "
               "{ os, string, _G, getfenv, x = print } => table0 | {{},{}} => table2"s,
               valueOf);
    const auto messageOf = [](const std::string& text) {
        LuaState lua;
        EXPECT_EQ(lua.load(text), EBADRQC) << text;
        EXPECT_EQ(lua_gettop(lua.L), 1);
        return std::regex_replace(lua_tostring(lua.L, -1), std::regex(".*\"\\]:1: |.*\\.\\.\\.:1: "), "");
    };
    expectRows(
        "1, 2 => ')' expected near ',' | return { version = 1 } => unexpected symbol near 'return' | "
        "x = 1 => ')' expected near '=' | 1) x = (1 => '<eof>' expected near 'x' |  => unexpected symbol near ')' | "
        "{} -- comment => ')' expected near '<eof>' | {}\0 => ')' expected near '<eof>' | "
        "print('x') => attempt to call global 'print' (a nil value) | "
        "('x'):rep(9) => attempt to index a string value | nil + 1 => attempt to perform arithmetic on a nil value"s,
        messageOf);
}

TEST(Sandbox, RefusesBytecodeAndTheWordFunctionByItsFirstOccurrence) {
    const auto loads = [](const std::string& text) {
        return LuaState().load(text) == EILSEQ ? "refused" : "loads";
    };
    expectRows(
        "'functions' => loads | 'function2' => loads | 'dysfunction' => loads | '4function' => loads | "
        "functionfunction => loads | 'Function' => loads | 'functio' => loads | "
        "{ x = 'dysfunction', y = function() end } => loads | function => refused | dys.function => refused | "
        "my_function => refused | function_x => refused |  function  => refused | (function() end)() => refused | "
        "'/function/' => refused | {} -- function\n => refused | '\xC3"
        "function\xC3' => refused | "
        "{ function() end, 'dysfunction' } => refused | \033Lua => refused |  \033 => loads",
        loads);
}

TEST(Sandbox, NeedsTenBytesMoreThanTheText) {
    LuaState lua;
    EXPECT_EQ(lua.load("1", 1), ENOBUFS);
    EXPECT_EQ(lua.load("", 10), ENOBUFS);
    EXPECT_EQ(lua.load("function", 9), EILSEQ);
    char buffer[16] = "12behind";
    EXPECT_EQ(loadDataChunk(lua.L, buffer, 2, 12), 0);
    EXPECT_STREQ(buffer, "return (12)");
}

TEST(FieldReaders, TakeStringsThatFit) {
    const std::string longest = "1234567890123456789012345678901", invalid = "Invalid string for field \"s\"";
    EXPECT_EQ(stringOf("'" + longest + "'", false), longest);
    EXPECT_EQ(stringOf("'" + longest + "2'", true), "String too long: " + longest + "2");
    EXPECT_EQ(stringOf("1.5", false), "1.5");
    EXPECT_EQ(stringOf("'a\\0b'", false), "a\0b"s);
    EXPECT_EQ(stringOf("''", false) + stringOf("nil", true), "");
    EXPECT_EQ(stringOf("nil", false), invalid);
    EXPECT_EQ(stringOf("false", true), invalid);
    EXPECT_EQ(stringOf("{}", true), invalid);
}

TEST(FieldReaders, TakeNumbersTruncatedTowardsZero) {
    const auto required = [](const std::string& value) { return intOf(value, REQUIRED_FIELD); };
    const std::string numbers =
        "2.9 => 2 | -2.9 => -2 | -0.5 => 0 | '12' => 12 | ' 0x10 ' => 16 | "
        "2147483647.5 => 2147483647 | -2147483647 => -2147483647 | 3e9 => 2147483647 | "
        "-1e10 => -2147483648 | 1/0 => 2147483647";
    expectRows(numbers + " | nil => none", required);
    const auto optional = [](const std::string& value) { return intOf(value, 7); };
    expectRows(numbers + " | nil => 7 | '1a' => none | '' => none | true => none | {} => none | 0/0 => none",
               optional);
}

TEST(FieldReaders, TakeOneTokenOfAList) {
    const auto optional = [](const std::string& value) { return tokenOf(value, 5); };
    expectRows(
        "'kernel' => 0 | 'rootfs' => 1 | 42 => 2 | nil => 5 | 'kern' => kern? | 'kernels' => kernels? | "
        "'Kernel' => Kernel? | ' rootfs' =>  rootfs? | 'kernel,rootfs' => kernel,rootfs? | '' => ? | {} => null?",
        optional);
    EXPECT_EQ(tokenOf("nil", REQUIRED_FIELD), "Missing enum value for \"f\"");
    EXPECT_EQ(findEnumToken(nullptr, 1, "a;b", ';'), -1);
    EXPECT_EQ(findEnumToken("", 0, "a;;b", ';'), -1);
    EXPECT_EQ(findEnumToken("bc", 1, "a;b;b", ';'), 1);
}
