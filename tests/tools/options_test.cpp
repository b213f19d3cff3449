// The manual pages and the completions of the tools know every command and every option that the program takes, and no
// other.

#include "spec_view/finding.h"
#include "support/program.h"

#include <gtest/gtest.h>
#include <regex>
#include <set>

namespace {

using Words = std::set<std::string>;

struct Tool {
    std::string name;
    std::string program;
    std::string folder;     // of the manual page
    std::string function;   // the completion for bash
    std::string nextTitle;  // in the manual page, after the commands
    std::string longest;    // of the completion for zsh: a description with colons and more than one line
};
const Tool kTools[] = {
    {"rovu-pack", ROVU_PACK_PROGRAM, ROVU_PACK_SOURCE, "_rovu_pack", ".SH FINDINGS",
     R"([Where the pass phrase of the key or the PIN of the token is\: file\:PATH (its first line), fd\:N or env\:NAME; default\: ask on the terminal])"},
    {"rovu-sim", ROVU_SIM_PROGRAM, ROVU_SIM_SOURCE, "_rovu_sim", ".SH FAILURES",
     R"([Root file system\: a folder, a squashfs image or a tar (BusyBox and nothing else)])"},
};

class OptionTexts : public ::testing::Test {
protected:
    // What a shell prints.
    std::string shell(const std::string& line) const {
        const std::string path = scratch_.path + "/said";
        writeWholeFile(path, "");
        EXPECT_EQ(Program({"/bin/bash", "-c", line}, path, path).wait(), 0) << readWholeFile(path);
        return readWholeFile(path);
    }

    std::string help(const Tool& tool, const std::string& command) const {
        return shell("'" + tool.program + "' " + command + " --help");
    }

    // What bash offers for the word `start` after `before`, which are words of a command line.
    Words completions(const Tool& tool, const std::string& before, const std::string& start) const {
        const std::string offered =
            shell("source <('" + tool.program + "' --completion bash); COMP_WORDS=(" + before + " '" + start +
                  "'); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); " + tool.function +
                  "; printf '%s\\n' \"${COMPREPLY[@]}\"");
        return matches(offered, "(\\S+)");
    }

    // The first group of each match.
    static Words matches(const std::string& text, const std::string& pattern) {
        const std::regex expression(pattern, std::regex::multiline);
        Words found;
        for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at)
            found.insert(at->str(1));
        return found;
    }

    static std::string between(const std::string& text, const std::string& begin, const std::string& end) {
        const size_t from = text.find(begin);
        if (from == std::string::npos) return "";
        return text.substr(from + begin.size(), text.find(end, from + begin.size()) - from - begin.size());
    }

    static Words zshOptions(const std::string& completion, const std::string& command) {
        return matches(between(completion, "\n    " + command + ")\n", ";;"),
                       "'(?:\\([^)]*\\))?\\*?(--[a-z-]+)");
    }

private:
    const ScratchDir scratch_;
};

TEST_F(OptionTexts, AreInHelpManualAndCompletions) {
    for (const Tool& tool : kTools) {
        SCOPED_TRACE(tool.name);
        EXPECT_EQ(shell("'" + tool.program + "' --version"), tool.name + " " ROVU_VERSION "\n");
        const std::string manual =
            std::regex_replace(readWholeFile(tool.folder + "/" + tool.name + ".1"), std::regex("\\\\-"), "-");
        const std::string synopsis = between(manual, ".SH SYNOPSIS", ".SH DESCRIPTION");
        const std::string commandSections = between(manual, ".SH COMMANDS", tool.nextTitle);
        const std::string zsh = shell("'" + tool.program + "' --completion zsh");
        const Words commands = matches(help(tool, ""), "^  ([a-z]+) ");
        ASSERT_GT(commands.size(), 5U) << help(tool, "");
        Words offered = completions(tool, tool.name, "");
        EXPECT_EQ(offered.erase("--help") + offered.erase("--version"), 2U);
        EXPECT_EQ(offered, commands);
        EXPECT_EQ(matches(zsh, "^    '([a-z]+):"), commands);
        EXPECT_NE(zsh.find(tool.longest), std::string::npos) << zsh;
        EXPECT_EQ(matches(synopsis, "^\\.B " + tool.name + " ([a-z]+)"), commands);
        EXPECT_EQ(matches(commandSections, "^\\.SS ([a-z]+)"), commands);
        for (const std::string& command : commands) {
            SCOPED_TRACE(command);
            Words options = matches(help(tool, command), "^  (?:-[hv],)?(--[a-z-]+)");
            options.insert("--help");
            EXPECT_EQ(completions(tool, tool.name + " " + command, "--"), options);
            EXPECT_EQ(zshOptions(zsh, command), options);
            options.erase("--help");
            const std::string use = between(synopsis, ".B " + tool.name + " " + command + "\n", ".br");
            EXPECT_EQ(matches(use, "(--[a-z-]+)"), options);
            const std::string section = between(commandSections, ".SS " + command + " ", ".SS ");
            for (const std::string& option : options)
                EXPECT_EQ(matches(section, "^\\.[A-Z]+ .*(" + option + ")(?![a-z-])").size(), 1U) << option;
        }
    }
}

TEST_F(OptionTexts, PropertiesOfADeviceAreInHelpAndManual) {
    const Tool& tool = kTools[0];
    const std::string known = shell("'" + tool.program + "' check /dev/null --device colour=1 2>&1 || :");
    const std::string manual = readWholeFile(tool.folder + "/" + tool.name + ".1");
    const Words names = matches(between(known, "known are ", "\n"), "([a-z-]+)");
    ASSERT_GT(names.size(), 10U) << known;
    for (const std::string& name : names) {
        EXPECT_NE(help(tool, "check").find(name + "="), std::string::npos) << name;
        EXPECT_NE(std::regex_replace(manual, std::regex("\\\\-"), "-").find(name + "="), std::string::npos)
            << name;
    }
}

TEST_F(OptionTexts, FindingsAreInTheManualAndCounted) {
    const std::string manual = readWholeFile(ROVU_PACK_SOURCE "/rovu-pack.1");
    for (int code = 0; code < eFindingCodeCount; ++code) {
        Findings findings;
        const Finding& finding = findings.add(static_cast<FindingCode>(code), {}, "");
        const std::string row = std::string("\n") + findingCodeText(finding.code) + "\t" +
                                severityText(finding.severity) + "\tT{\n";
        EXPECT_NE(manual.find(row), std::string::npos) << row;
    }
    const std::string count = "| " + std::to_string(eFindingCodeCount) + " kinds of findings";
    EXPECT_NE(readWholeFile(ROVU_PACK_SOURCE "/../../README.md").find(count), std::string::npos) << count;
}

}  // namespace
