// A reading of the script line by line, with quoted text taken out. It knows no grammar: what it misreads is a note too
// many or too few.

#include "content/shell_dialect.h"

#include <algorithm>
#include <cctype>
#include <regex>
#include <sstream>

namespace {

constexpr size_t kLongestLine = 1000;  // bytes that are looked at: the library's expressions recurse

using Kind = ScriptConstruct::Kind;
constexpr Kind eBash = ScriptConstruct::eBash;
constexpr Kind eHazard = ScriptConstruct::eHazard;

constexpr char kArgument[] = "an argument, and the device gives none";

struct Construct {
    Kind kind;
    const char* name;
    bool isExpansion;  // also within double quotes
    const char* pattern;
};

const Construct kConstructs[] = {
    {eBash, "an array", false, R"((^|[\s;&|({])[A-Za-z_]\w*\+?=\()"},
    {eBash, "an array", true, R"(\$\{[A-Za-z_]\w*\[)"},
    {eBash, "a here-string", false, R"(<<<)"},
    {eBash, "an arithmetic for", false, R"((^|[\s;])for\s*\(\()"},
    {eBash, "a range in braces", false, R"(\{\d+\.\.\d+\})"},
    {eBash, "a change of case", true, R"(\$\{[A-Za-z_]\w*(\^\^?|,,?)\})"},
    {eBash, "an indirect expansion", true, R"(\$\{![A-Za-z_])"},
    {eBash, "a pipe of errors", false, R"(\|&)"},
    {eBash, "a command of bash", false,
     R"((^|[;&|]|\sthen|\sdo|\selse)\s*(declare|typeset|mapfile|readarray|shopt|pushd|popd|coproc|printf -v|read -a)\s)"},
    {eHazard, "a file of the working directory, which is not that of the script", false,
     R"((^|[;&|]|\sthen|\sdo|\selse)\s*(\.|source|sh|)\s*\./[A-Za-z_])"},
    {eHazard, "a reboot, which cuts the update short", false,
     R"((^|[;&|]|\sthen|\sdo|\selse)\s*(/sbin/)?(reboot|poweroff|halt|shutdown)(\s|;|$))"},
    {eHazard, "a removal of the device's work directory", false,
     R"(rm\s+(-\S+\s+)+/tmp/(rovu/?|\*)?(\s|;|$))"},
    {eHazard, "a command of workstations", false,
     R"((^|[;&|]|\sthen|\sdo|\selse)\s*(sudo|apt|apt-get|yum|dnf|systemctl)\s)"},
    {eHazard, kArgument, true, R"(\$\{?[1-9@*])"},
    {eHazard, "a template's placeholder", true, R"(\{\{ ?[A-Za-z_.]+ ?\}\})"},
};

// One line after the other, without what is quoted.
class LineReader {
public:
    bool isInHereDocument() const { return !endWord_.empty(); }

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

// Its own, or those of its functions.
bool setsArguments(const std::string& script) {
    for (const char* word : {"()", "( )", "function ", "set -", "getopts"}) {
        if (script.find(word) != std::string::npos) return true;
    }
    return false;
}

void noteLine(Kind kind, const char* name, size_t line, std::vector<ScriptConstruct>* found) {
    const auto same = std::find_if(found->begin(), found->end(), [name](const ScriptConstruct& other) {
        return std::string(other.name) == name;
    });
    if (same == found->end()) {
        found->push_back({kind, name, {line}});
    } else if (same->lines.back() != line) {
        same->lines.push_back(line);
    }
}

}  // namespace

std::vector<ScriptConstruct> findConstructs(const std::string& script) {
    std::vector<ScriptConstruct> found;
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
                noteLine(construct.kind, construct.name, number, &found);
        }
    }
    if (setsArguments(script)) {
        const auto isArgument = [](const ScriptConstruct& other) {
            return other.name == std::string(kArgument);
        };
        found.erase(std::remove_if(found.begin(), found.end(), isArgument), found.end());
    }
    if (reader.isInHereDocument()) noteLine(eHazard, "a here-document without its end", number, &found);
    return found;
}

bool endsInTest(const std::string& script) {
    std::istringstream lines(script);
    LineReader reader;
    std::string last;
    for (std::string line, code, expanded; std::getline(lines, line);) {
        reader.read(line, &code, &expanded);
        if (code.find_first_not_of(" \t\r") != std::string::npos) last = code;
    }
    static const std::regex test(R"(^(\[\[?\s|test\s|grep\s+-q\s)[^;|]*&&[^;|]*$)");
    return last.size() < kLongestLine && std::regex_search(last, test);
}
