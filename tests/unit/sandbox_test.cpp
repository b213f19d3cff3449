#include "lua_state.h"
#include "lua_util/field_readers.h"
#include "unit_test.h"

TEST(Sandbox, EvaluatesOneExpressionToItsValue) {
    const struct {
        std::string expression;
        const char* type;          // of the value; null: there is none
        std::string message = "";  // if there is no value
    } rows[] = {
        {"{ version = 1 }", "table"},
        {"{} -- comment\n", "table"},
        {"{})\0("s, "table"},
        {"os or string or _G or getfenv or print", "nil"},
        {"1, 2", nullptr, "')' expected near ','"},
        {"return { version = 1 }", nullptr, "unexpected symbol near 'return'"},
        {"1) x = (1", nullptr, "'<eof>' expected near 'x'"},
        {"", nullptr, "unexpected symbol near ')'"},
        {"{} -- comment", nullptr, "')' expected near '<eof>'"},
        {"{}\0"s, nullptr, "')' expected near '<eof>'"},
        {"print('x')", nullptr, "attempt to call global 'print' (a nil value)"},
        {"('x'):rep(9)", nullptr, "attempt to index a string value"},
    };
    const std::regex place(".*\"\\]:1: |.*\\.\\.\\.:1: ");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.expression);
        LuaState lua;
        ASSERT_EQ(lua.load(row.expression), row.type == nullptr ? EBADRQC : 0);
        ASSERT_EQ(lua_gettop(lua.lua), row.type == nullptr ? 1 : 0);
        if (row.type == nullptr) {
            EXPECT_EQ(std::regex_replace(lua_tostring(lua.lua, -1), place, ""), row.message);
        } else {
            lua_getfield(lua.lua, LUA_REGISTRYINDEX, kChunkValueKey);
            EXPECT_STREQ(luaL_typename(lua.lua, -1), row.type);
        }
    }
}

TEST(Sandbox, RefusesBytecodeAndTheFirstFunctionIfItIsAWord) {
    const char* const kRefused[] = {
        "function",         "dys.function",       "my_function",        "function_x",
        "{} -- function\n", "'\303function\303'", "(function() end)()", "{ function() end, 'dysfunction' }",
        "\033Lua"};
    const char* const kTaken[] = {
        "'functions'",      "'function2'", "'dysfunction'", "'4function'",
        "functionfunction", "'Function'",  " \033",         "{ x = 'dysfunction', y = function() end }"};
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

TEST(FieldReaders, TakeNumbersTruncatedTowardsZero) {
    const std::string notANumber = "Value for \"n\" is not a number.";
    const struct {
        const char* value;
        int32_t defaultValue, number;
        std::string message = "";
    } rows[] = {
        {"2.9", REQUIRED_FIELD, 2},
        {"-2.9", REQUIRED_FIELD, -2},
        {"'12'", 7, 12},
        {"' 0x10 '", 7, 16},
        {"2147483647.5", REQUIRED_FIELD, 2147483647},
        {"-2147483647", REQUIRED_FIELD, -2147483647},
        {"3e9", 7, 2147483647},
        {"-1e10", 7, INT32_MIN},
        {"1/0", 7, 2147483647},
        {"nil", 7, 7},
        {"nil", REQUIRED_FIELD, 0, notANumber},
        {"'1a'", 7, 0, notANumber},
        {"''", 7, 0, notANumber},
        {"true", 7, 0, notANumber},
        {"{}", 7, 0, notANumber},
        {"0/0", 7, 0, notANumber},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        LuaState lua;
        int32_t number = 0;
        EXPECT_EQ(lua.load("{ n = "s + row.value + " }"), 0);
        const auto read = [&] { number = getIntField(lua.lua, -1, "n", row.defaultValue); };
        EXPECT_EQ(lua.raisedBy(read), row.message);
        EXPECT_EQ(number, row.number);
    }
}
