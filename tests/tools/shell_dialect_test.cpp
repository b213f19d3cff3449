// Lines of scripts that the shell of BusyBox takes otherwise than bash.

#include "shell_dialect.h"

#include <gtest/gtest.h>

namespace {

struct Row {
    const char* script;
    const char* name;  // of what is found; empty: nothing
    size_t line = 1;
};

const Row kRows[] = {
    {"a=(1 2)", "an array"},
    {"local a+=( 1 )", "an array"},
    {"echo \"${a[0]}\"", "an array"},
    {"\nread -a x", "a command of bash", 2},
    {"cat <<EOF\na=(1)\nEOF\ncat <<<x", "a here-string", 4},
    {"for ((i = 0; i < 3; i++)); do :; done", "an arithmetic for"},
    {"echo x{1..5}", "a range in braces"},
    {"echo \"${a^^}\"", "a change of case"},
    {"echo ${!a}", "an indirect expansion"},
    {"make |& cat", "a pipe of errors"},
    {"if x; then declare -A a; fi", "a command of bash"},

    {"a='(1 2)' b=$(x) c=\"(1)\" f() (x)", ""},
    {"echo 'it''s' \"a=(1)\" # a=(1)", ""},
    {"awk '\n{ a=(1) }\n' x", ""},
    {"cat <<-'EOF'\n\ta=(1)\n\tEOF\n:", ""},
    {"x=$((1<<2))\nx=$((x<(3)))", ""},
    {"echo ${a#x} ${#a} ${a%%,*} ${a:-,} ${a:+^}", ""},
    {"echo \\{1..5} a\\=(1)", ""},
    {"trap 'exit 1' ERR; mydeclare x; echo declare x", ""},
    {"[[ $a == b* ]] && echo ${a/x/y} ${a:1:2} $'\\n' &>/dev/null", ""},
    {"function f { source x; }; cat <(ls); read -r a; printf -- -v", ""},
};

TEST(ShellDialect, OnlyWhatNoBusyBoxKnowsIsFound) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.script);
        const std::vector<BashConstruct> found = findBashConstructs(row.script);
        ASSERT_EQ(found.size(), *row.name == '\0' ? 0U : 1U);
        if (found.empty()) continue;
        EXPECT_STREQ(found.front().name, row.name);
        EXPECT_EQ(found.front().lines, std::vector<size_t>{row.line});
    }
}

}  // namespace
