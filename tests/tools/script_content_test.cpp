// What is found in scripts: lines that the shell of BusyBox takes otherwise than bash, and what harms a device.

#include "content/script_content.h"

#include <gtest/gtest.h>

namespace {

struct Row {
    const char* script;
    const char* name;  // of what is found; empty: nothing
    size_t line = 1;
};

const Row kRows[] = {
    {"a=(1 2)", "an array"},
    {"echo \"${a[0]}\"", "an array"},
    {"\nread -a x", "a command of bash", 2},
    {"cat <<EOF\na=(1)\nEOF\ncat <<<x", "a here-string", 4},
    {"for ((i = 0; i < 3; i++)); do :; done", "an arithmetic for"},
    {"echo x{1..5}", "a range in braces"},
    {"echo \"${a^^}\"", "a change of case"},
    {"echo ${!a}", "an indirect expansion"},
    {"make |& cat", "a pipe of errors"},

    {"#!/bin/sh\n./helper.sh", "a file of the working directory, which is not that of the script", 2},
    {". ./lib.sh", "a file of the working directory, which is not that of the script"},
    {"if x; then reboot; fi", "a reboot, which cuts the update short"},
    {"rm -rf /tmp/rovu", "a removal of the device's work directory"},
    {"sudo true", "a command that only workstations have"},
    {"\ncp \"$1\" x", "an argument, and the device gives none", 2},
    {"f() { echo $1; }; f x", ""},
    {"set -- x; echo $1; awk '{ print $1 }'", ""},
    {"cat <<EOF\na\n EOF", "a here-document without its end", 3},

    {"/opt/./x; tar -xf a ./b; echo reboot; killall reboot; rm -rf /tmp/rovu.old /tmp/x", ""},
    {"fw_printenv bootswitcher; echo {{}} ; sudoku; test -x ./a", ""},
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

TEST(ShellDialect, OnlyWhatNoBusyBoxKnowsOrNoDeviceGivesIsFound) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.script);
        const std::vector<ScriptConstruct> found = findConstructs(row.script);
        ASSERT_EQ(found.size(), *row.name == '\0' ? 0U : 1U);
        if (found.empty()) continue;
        EXPECT_STREQ(found.front().name, row.name);
        EXPECT_EQ(found.front().lines, std::vector<size_t>{row.line});
    }
}

TEST(ShellDialect, TestBeforeAndAtTheEndDecidesTheExitStatus) {
    const struct {
        const char* script;
        bool ends;
    } rows[] = {
        {"[ -f x ] && rm x\n\n# end\n", true},
        {"test -f x && rm x", true},
        {"grep -q a b && c", true},
        {"[ -f x ] && rm x\ntrue\n", false},
        {"[ -f x ] && rm x || :", false},
        {"if [ a ] && [ b ]; then\nc\nfi", false},
        {"[ -f x ]\n", false},
        {"x && y", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.script);
        EXPECT_EQ(endsInTest(row.script), row.ends);
    }
}

// What is found in a script, and on which line; a variable that nothing sets as "$NAME".
std::string dangersOf(const std::string& script) {
    std::string text;
    std::vector<ScriptConstruct> found = findDangers(script);
    for (const ScriptConstruct& construct : findForeignText(script))
        found.push_back(construct);
    for (const ScriptConstruct& construct : found)
        text +=
            std::to_string(construct.lines.front()) + " " + std::string(construct.name).substr(0, 12) + ";";
    for (const auto& [name, line] : findUnset(script))
        text += std::to_string(line) + " $" + name + ";";
    return text;
}

TEST(ShellDangers, AreSeenThroughQuotesVariablesAndSubstitutions) {
    const struct {
        const char* script;
        const char* found;
    } rows[] = {
        {"D=/dev/mtd\nif x; then nandwrite -p \"${D}1\" a; fi", "2 a write to r;"},
        {"x=$(cat a >/dev/mtdblock0)", "1 a write to r;"},
        {"echo `dd if=a of=/dev/mmcblk0`", "1 a write to r;"},
        {"tee '/dev/mtd0' <a; cp a /dev/sda", "1 a write to r;"},
        {"V=boot\nfw_setenv ${V}switcher 1", "2 bootswitcher;"},
        {"which mtd_debug && mtd_debug erase /dev/mtd1 0 9\nfw_setenv -s a",
         "1 a write to r;2 a change of ;"},
        {"ubirmvol /dev/ubi0 -n 3; ubirmvol /dev/ubi0 -N app", "1 a removal of;"},
        {"cd / && rm -fr /overlay/.", "1 a removal of;"},
        {"for f in /app0/secrets; do\nmv $f /tmp; done", "2 a removal of;"},
        {"busybox killall rovu", "1 an end of ro;"},
        {"echo \"$A\nb$(echo $C)\"", "1 $A;2 $C;"},
        {"rm \xE2\x80\x93rf a\necho 'CHANGE_ME'", "1 a dash in pl;2 a placeholde;"},
        {"echo \"{{ version }}\"", "1 a placeholde;"},
        {"echo \xE2\x80\x9C"
         "a",
         "1 a typographi;"},
        {"dd if=/dev/mtd0 of=a; cat </dev/mtd1 2>/dev/null >&2; flash_lock /dev/mtd0", ""},
        {"fw_printenv bootswitcher; fw_setenv a bootswitchers; ubirmvol /dev/ubi0 -N app", ""},
        {"mv a /etc/ssh/rovu_pub.pem; rm -rf /etc/ssh.old /app0/cache/* /tmp/x; rm /etc/x", ""},
        {"cat <<'E' >a\ndd of=/dev/mtd0\necho $A\nE\n# dd of=/dev/mtd0 \xE2\x80\x9C", ""},
        {"read -r A B <c; for D in 1 2; do :; done; echo $A$B$D$? \"$@\" $# $$ '$X' \\$Y $((Z))", ""},
        {"[ -n \"$A\" ] && b $A; echo ${C:-d} ${E:=f} $E; export G=1; local H; while getopts a I; do c $G$H$I; done",
         ""},
        {". ./a\necho $B", ""},
        {"case $1 in a) echo \xE2\x80\x93 b;; esac; echo a@b.c @ A@; echo \"\xE2\x80\x9C\"", ""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(dangersOf(row.script), row.found) << row.script;
    std::string deep;
    for (int i = 0; i < 300000; ++i)
        deep += "$(";
    EXPECT_EQ(dangersOf(deep), "");
}

}  // namespace
