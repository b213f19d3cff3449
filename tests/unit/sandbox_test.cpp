#include "lua_state.h"
#include "lua_util/field_readers.h"
#include "unit_test.h"

namespace {

const std::string kNotANumber = "Value for \"n\" is not a number.";

struct IntRow {
    const char* value;
    int32_t number;
    std::string message = "";  // empty: the number is good
};

void expectInts(const std::vector<IntRow>& rows, int32_t defaultValue) {
    for (const IntRow& row : rows) {
        SCOPED_TRACE(row.value);
        LuaState lua;
        int32_t number = 0;
        EXPECT_EQ(lua.load("{ n = "s + row.value + " }"), 0);
        EXPECT_EQ(lua.raisedBy([&] { number = getIntField(lua.lua, -1, "n", defaultValue); }), row.message);
        EXPECT_EQ(number, row.number);
    }
}

// The index of the token in kTokens; `message` receives what was raised.
int tokenOf(const std::string& value, int32_t defaultValue, std::string* message) {
    LuaState lua;
    int token = 0;
    EXPECT_EQ(lua.load(value), 0);
    *message =
        lua.raisedBy([&] { token = getEnumValue(lua.lua, -1, "kernel,rootfs,42", ',', "f", defaultValue); });
    return token;
}

}  // namespace

TEST(Sandbox, EvaluatesOneExpressionToItsValue) {
    const struct {
        std::string expression;
        const char* type;
        size_t length;
    } rows[] = {
        {"{ version = 1 }", "table", 0},
        {"{} -- comment\n", "table", 0},
        {"{})\0("s, "table", 0},
        {"print", "nil", 0},
        {"{ os, string, _G, getfenv, x = print }", "table", 0},
        {"{{},{}}", "table", 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.expression);
        LuaState lua;
        EXPECT_EQ(lua.load(row.expression), 0);
        EXPECT_EQ(lua_gettop(lua.lua), 0);
        lua_getfield(lua.lua, LUA_REGISTRYINDEX, kChunkValueKey);
        EXPECT_STREQ(luaL_typename(lua.lua, -1), row.type);
        EXPECT_EQ(lua_objlen(lua.lua, -1), row.length);
    }
}

TEST(Sandbox, RefusesAllThatIsNotOneExpression) {
    const struct {
        std::string expression;
        const char* message;
    } rows[] = {
        {"1, 2", "')' expected near ','"},
        {"return { version = 1 }", "unexpected symbol near 'return'"},
        {"x = 1", "')' expected near '='"},
        {"1) x = (1", "'<eof>' expected near 'x'"},
        {"", "unexpected symbol near ')'"},
        {"{} -- comment", "')' expected near '<eof>'"},
        {"{}\0"s, "')' expected near '<eof>'"},
        {"print('x')", "attempt to call global 'print' (a nil value)"},
        {"('x'):rep(9)", "attempt to index a string value"},
        {"nil + 1", "attempt to perform arithmetic on a nil value"},
    };
    const std::regex place(".*\"\\]:1: |.*\\.\\.\\.:1: ");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.expression);
        LuaState lua;
        EXPECT_EQ(lua.load(row.expression), EBADRQC);
        EXPECT_EQ(lua_gettop(lua.lua), 1);
        EXPECT_EQ(std::regex_replace(lua_tostring(lua.lua, -1), place, ""), row.message);
    }
}

TEST(Sandbox, RefusesBytecodeAndTheFirstFunctionIfItIsAWord) {
    const char* const kBetweenBytes = "'\xC3"
                                      "function\xC3'";
    const char* const kRefused[] = {"function",     "dys.function",
                                    "my_function",  "function_x",
                                    " function ",   "(function() end)()",
                                    "'/function/'", "{} -- function\n",
                                    kBetweenBytes,  "{ function() end, 'dysfunction' }",
                                    "\033Lua"};
    const char* const kTaken[] = {"'functions'",
                                  "'function2'",
                                  "'dysfunction'",
                                  "'4function'",
                                  "functionfunction",
                                  "'Function'",
                                  "'functio'",
                                  "{ x = 'dysfunction', y = function() end }",
                                  " \033"};
    for (const char* expression : kRefused)
        EXPECT_EQ(LuaState().load(expression), EILSEQ) << expression;
    for (const char* expression : kTaken)
        EXPECT_NE(LuaState().load(expression), EILSEQ) << expression;
}

TEST(Sandbox, NeedsTenBytesMoreThanTheExpression) {
    LuaState lua;
    EXPECT_EQ(lua.load("1", 1), ENOBUFS);
    EXPECT_EQ(lua.load("", 10), ENOBUFS);
    EXPECT_EQ(lua.load("function", 9), EILSEQ);
    char buffer[16] = "12after";
    EXPECT_EQ(loadDataChunk(lua.lua, buffer, 2, 12), 0);
    EXPECT_STREQ(buffer, "return (12)");
}

TEST(FieldReaders, TakeStringsThatFit) {
    constexpr bool kRequired = false, kOptional = true;
    const std::string longest = "1234567890123456789012345678901", invalid = "Invalid string for field \"s\"";
    const struct {
        std::string value;
        bool optional;
        std::string content, message;
    } rows[] = {
        {"'" + longest + "'", kRequired, longest, ""},
        {"'" + longest + "2'", kOptional, "", "String too long: " + longest + "2"},
        {"1.5", kRequired, "1.5", ""},
        {"'a\\0b'", kRequired, "a\0b"s, ""},
        {"''", kRequired, "", ""},
        {"nil", kOptional, "", ""},
        {"nil", kRequired, "", invalid},
        {"false", kOptional, "", invalid},
        {"{}", kOptional, "", invalid},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value + (row.optional ? ", optional" : ", required"));
        LuaState lua;
        std::string destination(33, '.');  // one more byte than the reader may use
        size_t length = 0;
        EXPECT_EQ(lua.load("{ s = " + row.value + " }"), 0);
        const auto read = [&] {
            length = getStringField(lua.lua, -1, "s", destination.data(), 32, row.optional);
        };
        EXPECT_EQ(lua.raisedBy(read), row.message);
        const std::string terminator(row.message.empty() ? 1 : 0, '\0');
        const std::string untouched(33 - row.content.size() - terminator.size(), '.');
        EXPECT_EQ(length, row.content.size());
        EXPECT_EQ(destination, row.content + terminator + untouched);
    }
}

TEST(FieldReaders, TakeNumbersTruncatedTowardsZero) {
    const std::vector<IntRow> numbers = {
        {"2.9", 2},
        {"-2.9", -2},
        {"-0.5", 0},
        {"'12'", 12},
        {"' 0x10 '", 16},
        {"2147483647.5", 2147483647},
        {"-2147483647", -2147483647},
        {"3e9", 2147483647},
        {"-1e10", INT32_MIN},
        {"1/0", 2147483647},
    };
    expectInts(numbers, REQUIRED_FIELD);
    expectInts(numbers, 7);
    expectInts({{"nil", 0, kNotANumber}}, REQUIRED_FIELD);
    expectInts({{"nil", 7},
                {"'1a'", 0, kNotANumber},
                {"''", 0, kNotANumber},
                {"true", 0, kNotANumber},
                {"{}", 0, kNotANumber},
                {"0/0", 0, kNotANumber}},
               7);
}

TEST(FieldReaders, TakeOneTokenOfAList) {
    constexpr int32_t kDefault = 5;
    const struct {
        const char* value;
        int token;
    } good[] = {{"'kernel'", 0}, {"'rootfs'", 1}, {"42", 2}, {"nil", kDefault}};
    std::string message;
    for (const auto& row : good) {
        SCOPED_TRACE(row.value);
        EXPECT_EQ(tokenOf(row.value, kDefault, &message), row.token);
        EXPECT_EQ(message, "");
    }
    const struct {
        const char *value, *shown;
    } bad[] = {
        {"'kern'", "kern"},
        {"'kernels'", "kernels"},
        {"'Kernel'", "Kernel"},
        {"' rootfs'", " rootfs"},
        {"'kernel,rootfs'", "kernel,rootfs"},
        {"''", ""},
        {"{}", "null"},
    };
    for (const auto& row : bad) {
        SCOPED_TRACE(row.value);
        tokenOf(row.value, kDefault, &message);
        EXPECT_EQ(message, "Bad enum value for f: "s + row.shown + " (expected one of kernel,rootfs,42)");
    }
    tokenOf("nil", REQUIRED_FIELD, &message);
    EXPECT_EQ(message, "Missing enum value for \"f\"");
    EXPECT_EQ(findEnumToken(nullptr, 1, "a;b", ';'), -1);
    EXPECT_EQ(findEnumToken("", 0, "a;;b", ';'), -1);
    EXPECT_EQ(findEnumToken("bc", 1, "a;b;b", ';'), 1);
}
