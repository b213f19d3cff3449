// The manual page and the completion know every command and every option that the program takes, and no other.

#include "support/program.h"
#include "support/scratch.h"

#include <gtest/gtest.h>
#include <regex>
#include <set>

namespace {

using Words = std::set<std::string>;

class OptionTexts : public ::testing::Test {
protected:
    // What a shell prints.
    std::string shell(const std::string& line) const {
        const std::string path = scratch_.path + "/said";
        writeWholeFile(path, "");
        EXPECT_EQ(Program({"/bin/bash", "-c", line}, path, path).wait(), 0) << readWholeFile(path);
        return readWholeFile(path);
    }

    std::string help(const std::string& command) const {
        return shell("'" ROVU_PACK_PROGRAM "' " + command + " --help");
    }

    // What is offered for the word `start` after `before`, which are words of a command line.
    Words completions(const std::string& before, const std::string& start) const {
        const std::string offered = shell(
            "source '" ROVU_PACK_SOURCE "/rovu-pack.bash'; COMP_WORDS=(" + before + " '" + start +
            "'); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); " + "_rovu_pack; printf '%s\\n' \"${COMPREPLY[@]}\"");
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

private:
    const ScratchDir scratch_;
};

TEST_F(OptionTexts, AreInHelpManualAndCompletion) {
    const std::string manual =
        std::regex_replace(readWholeFile(ROVU_PACK_SOURCE "/rovu-pack.1"), std::regex("\\\\-"), "-");
    const std::string synopsis = between(manual, ".SH SYNOPSIS", ".SH DESCRIPTION");
    const std::string commandSections = between(manual, ".SH COMMANDS", ".SH FINDINGS");
    const Words commands = matches(help(""), "^  ([a-z]+) ");
    ASSERT_GT(commands.size(), 5U) << help("");
    Words offered = completions("rovu-pack", "");
    EXPECT_EQ(offered.erase("--help") + offered.erase("--version"), 2U);
    EXPECT_EQ(offered, commands);
    EXPECT_EQ(matches(synopsis, "^\\.B rovu-pack ([a-z]+)"), commands);
    EXPECT_EQ(matches(commandSections, "^\\.SS ([a-z]+)"), commands);
    for (const std::string& command : commands) {
        SCOPED_TRACE(command);
        Words options = matches(help(command), "^  (?:-h,)?(--[a-z-]+)");
        EXPECT_EQ(completions("rovu-pack " + command, "--"), options);
        EXPECT_EQ(options.erase("--help"), 1U);
        const std::string use = between(synopsis, ".B rovu-pack " + command + "\n", ".br");
        EXPECT_EQ(matches(use, "(--[a-z-]+)"), options);
        const std::string section = between(commandSections, ".SS " + command + " ", ".SS ");
        for (const std::string& option : options)
            EXPECT_EQ(matches(section, "^\\.[A-Z]+ .*(" + option + ")(?![a-z-])").size(), 1U) << option;
    }
}

}  // namespace
