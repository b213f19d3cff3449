// A reading of the script line by line, with quoted text taken out. It knows no grammar: what it misreads is a note too
// many or too few.

#include "shell_dialect.h"

#include <algorithm>
#include <cctype>
#include <regex>
#include <sstream>

namespace {

constexpr size_t kLongestLine = 1000;  // bytes that are looked at: the library's expressions recurse

struct Construct {
    const char* name;
    bool isExpansion;  // also within double quotes
    const char* pattern;
};

const Construct kConstructs[] = {
    {"an array", false, R"((^|[\s;&|({])[A-Za-z_]\w*\+?=\()"},
    {"an array", true, R"(\$\{[A-Za-z_]\w*\[)"},
    {"a here-string", false, R"(<<<)"},
    {"an arithmetic for", false, R"((^|[\s;])for\s*\(\()"},
    {"a range in braces", false, R"(\{\d+\.\.\d+\})"},
    {"a change of case", true, R"(\$\{[A-Za-z_]\w*(\^\^?|,,?)\})"},
    {"an indirect expansion", true, R"(\$\{![A-Za-z_])"},
    {"a pipe of errors", false, R"(\|&)"},
    {"a command of bash", false,
     R"((^|[;&|]|\sthen|\sdo|\selse)\s*(declare|typeset|mapfile|readarray|shopt|pushd|popd|coproc|printf -v|read -a)\s)"},
};

// One line after the other, without what is quoted.
class LineReader {
public:
    // `code` is left without strings and comments, `expanded` with what is between double quotes.
    void read(const std::string& line, std::string* code, std::string* expanded) {
        code->clear();
        expanded->clear();
        if (!endWord_.empty()) {
            if (line.substr(std::min(line.find_first_not_of('\t'), line.size())) == endWord_)
                endWord_.clear();
            return;
        }
        for (size_t i = 0; i < line.size(); ++i)
            i += take(line, i, code, expanded);
        noteHereDocument(line, *code);
    }

private:
    // Returns how many more characters were taken.
    size_t take(const std::string& line, size_t at, std::string* code, std::string* expanded) {
        const char c = line[at];
        if (quote_ != '\'' && c == '\\') return 1;
        if (quote_ != 0) {
            if (c == quote_) quote_ = 0;
            if (quote_ == '"') *expanded += c;
            return 0;
        }
        const bool beginsWord =
            at == 0 || isspace(static_cast<unsigned char>(line[at - 1])) != 0 || line[at - 1] == ';';
        if (c == '#' && beginsWord) return line.size() - at;
        if (c == '\'' || c == '"') {
            quote_ = c;
            return 0;
        }
        *code += c;
        *expanded += c;
        return 0;
    }

    // Its end may be quoted, and is then not in `code`.
    void noteHereDocument(const std::string& line, const std::string& code) {
        size_t at = code.find("<<");
        if (at == std::string::npos || code.compare(at, 3, "<<<") == 0) return;
        if (code.find("$((") != std::string::npos) return;  // a shift
        at = line.find("<<");
        at = line.find_first_not_of("<- \t'\"\\", at);
        if (at == std::string::npos) return;
        const size_t end = line.find_first_of(" \t'\";|&<>)", at);
        endWord_ = line.substr(at, end == std::string::npos ? end : end - at);
    }

    char quote_ = 0;
    std::string endWord_;  // of the here-document that goes on; empty: there is none
};

const std::vector<std::regex>& patterns() {
    static const std::vector<std::regex> compiled = [] {
        std::vector<std::regex> list;
        for (const Construct& construct : kConstructs)
            list.emplace_back(construct.pattern);
        return list;
    }();
    return compiled;
}

void noteLine(const char* name, size_t line, std::vector<BashConstruct>* found) {
    const auto same = std::find_if(found->begin(), found->end(), [name](const BashConstruct& other) {
        return std::string(other.name) == name;
    });
    if (same == found->end()) {
        found->push_back({name, {line}});
    } else if (same->lines.back() != line) {
        same->lines.push_back(line);
    }
}

}  // namespace

std::vector<BashConstruct> findBashConstructs(const std::string& script) {
    std::vector<BashConstruct> found;
    std::istringstream lines(script);
    LineReader reader;
    size_t number = 0;
    for (std::string line, code, expanded; std::getline(lines, line);) {
        ++number;
        reader.read(line, &code, &expanded);
        code.resize(std::min(code.size(), kLongestLine));
        expanded.resize(std::min(expanded.size(), kLongestLine));
        for (size_t i = 0; i < patterns().size(); ++i) {
            const Construct& construct = kConstructs[i];
            if (std::regex_search(construct.isExpansion ? expanded : code, patterns()[i]))
                noteLine(construct.name, number, &found);
        }
    }
    return found;
}
