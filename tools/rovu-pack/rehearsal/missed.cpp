#include "missed.h"

#include <algorithm>
#include <regex>
#include <sstream>

std::vector<std::string> missedIn(const std::string& log, const std::string& root) {
    // As BusyBox, dash and bash say it: "save.sh: line 3: python3: not found", without "line", or "command not found".
    const std::regex missing("(?:.*/)?([^/ :]+): (?:line )?[0-9]+: (.+): (?:command )?not found");
    const std::regex syntax("(?:.*/)?([^/ :]+): (?:line )?([0-9]+): [Ss]yntax error:? ?(.*)");
    std::vector<std::string> found;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        std::smatch part;
        std::string sentence;
        if (std::regex_match(line, part, missing)) {
            sentence = part[1].str() + ": " + part[2].str() + ": not found in " + root;
        } else if (std::regex_match(line, part, syntax)) {
            sentence = part[1].str() + ", line " + part[2].str() + ": a syntax error for the shell of " +
                       root + ": " + part[3].str();
        }
        if (!sentence.empty() && std::find(found.begin(), found.end(), sentence) == found.end())
            found.push_back(sentence);
    }
    return found;
}
