#include "content/shell_commands.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

namespace {

using Words = std::vector<std::string>;

// Of the environment, the shell's own, and those that the boot of a device may set.
const std::set<std::string> kEnvironment = {
    "PATH",     "HOME",      "PWD",     "OLDPWD", "IFS",      "OPTARG",       "OPTIND",   "OPTERR", "SHELL",
    "USER",     "TERM",      "LOGNAME", "LANG",   "LANGUAGE", "TZ",           "TMPDIR",   "PPID",   "RANDOM",
    "LINENO",   "HOSTNAME",  "UID",     "EUID",   "PS1",      "PS2",          "PS4",      "ENV",    "SECONDS",
    "RUNLEVEL", "PREVLEVEL", "REPLY",   "MAIL",   "BASH",     "BASH_VERSION", "FUNCNAME", "_"};

// They precede a command, which continues after them.
const std::set<std::string> kPrefixes = {"if",   "then",    "elif", "else", "while",  "until",
                                         "do",   "!",       "{",    "time", "exec",   "nohup",
                                         "nice", "command", "sudo", "env",  "busybox"};

bool isNameStart(char c) {
    return isalpha(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool isNameCharacter(char c) {
    return isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

size_t endOfName(const std::string& text, size_t at) {
    while (at < text.size() && isNameCharacter(text[at]))
        ++at;
    return at;
}

class Reader {
public:
    explicit Reader(ShellScript* into) : script_(into) {}

    // `line` is that of the first character.
    void read(const std::string& text, size_t line) {
        const size_t outer = line_;
        line_ = line;
        for (size_t at = 0; at < text.size();)
            at = step(text, at);
        endCommand();
        line_ = outer;
    }

    void finish() {
        if (isOpen_) return;
        for (const ShellVariable& use : uses_) {
            const bool isSet = set_.count(use.name) != 0 || kEnvironment.count(use.name) != 0 ||
                               use.name.compare(0, 3, "LC_") == 0;
            if (!isSet) script_->unset.push_back(use);
        }
    }

private:
    // Takes one character or one construct. \return the place after it.
    size_t step(const std::string& text, size_t at) {
        const char c = text[at];
        if (c == '\n') return endLine(text, at);
        if (c == ' ' || c == '\t' || c == '\r') return endWord(), note(c), at + 1;
        if (c == '#' && !place_.inWord) return std::min(text.find('\n', at), text.size());
        if (c == '\\') return escape(text, at);
        if (c == '\'') return singleQuoted(text, at + 1);
        if (c == '"') return doubleQuoted(text, at + 1);
        if (c == '$') return expansion(text, at);
        if (c == '`') return backquoted(text, at + 1);
        if (c == '>' || c == '<') return redirection(text, at);
        if (std::string(";&|()").find(c) != std::string::npos) {
            endCommand();
            note(c);
            return at + 1;
        }
        put(c);
        note(c);
        return at + 1;
    }

    void note(char c) { script_->code += c; }

    void noteExpansion(std::string text) {
        std::replace(text.begin(), text.end(), '\n', ' ');
        script_->code += text;
    }

    void put(char c) {
        place_.inWord = true;
        place_.word += c;
    }

    size_t endLine(const std::string& text, size_t at) {
        endCommand();
        note('\n');
        ++line_;
        ++at;
        for (; !place_.endsOfDocuments.empty(); place_.endsOfDocuments.erase(place_.endsOfDocuments.begin()))
            at = skipDocument(text, at, place_.endsOfDocuments.front());
        return at;
    }

    size_t skipDocument(const std::string& text, size_t at, const std::string& end) {
        bool isEnd = false;
        while (at < text.size() && !isEnd) {
            const size_t lineEnd = std::min(text.find('\n', at), text.size());
            const size_t start = std::min(text.find_first_not_of('\t', at), lineEnd);
            isEnd = text.compare(start, lineEnd - start, end) == 0;
            at = std::min(lineEnd + 1, text.size());
            ++line_;
            note('\n');
        }
        if (!isEnd) script_->openDocument = line_ - 1;
        return at;
    }

    size_t escape(const std::string& text, size_t at) {
        if (at + 1 < text.size() && text[at + 1] == '\n') {
            ++line_;
            note('\n');
        } else if (at + 1 < text.size()) {
            put(text[at + 1]);
        }
        return at + 2;
    }

    size_t singleQuoted(const std::string& text, size_t at) {
        place_.inWord = true;
        for (; at < text.size() && text[at] != '\''; ++at)
            putQuoted(text[at]);
        return at + 1;
    }

    void putQuoted(char c) {
        put(c);
        if (c != '\n') return;
        ++line_;
        note(c);
    }

    size_t doubleQuoted(const std::string& text, size_t at) {
        place_.inWord = true;
        while (at < text.size() && text[at] != '"') {
            if (text[at] == '\\' && at + 1 < text.size()) {
                putQuoted(text[at + 1]);
                at += 2;
            } else if (text[at] == '$') {
                at = expansion(text, at);
            } else if (text[at] == '`') {
                at = backquoted(text, at + 1);
            } else {
                putQuoted(text[at++]);
            }
        }
        return at + 1;
    }

    // The place of the bracket that closes the one before `at`, quotes passed over.
    static size_t closing(const std::string& text, size_t at, char open, char close) {
        char quote = 0;
        for (size_t depth = 1; at < text.size(); ++at) {
            const char c = text[at];
            if (c == '\\') {
                ++at;
            } else if (quote != 0) {
                if (c == quote) quote = 0;
            } else if (c == '\'' || c == '"') {
                quote = c;
            } else if (c == open) {
                ++depth;
            } else if (c == close && --depth == 0) {
                break;
            }
        }
        return std::min(at, text.size());
    }

    // Deeper nesting than anybody writes is not read.
    void substitute(const std::string& inside) {
        constexpr size_t kDeepest = 20;
        const size_t line = line_ + static_cast<size_t>(std::count(inside.begin(), inside.end(), '\n'));
        if (depth_ < kDeepest) {
            Place outer;
            std::swap(outer, place_);
            ++depth_;
            read(inside, line_);
            --depth_;
            std::swap(outer, place_);
        }
        line_ = line;
        put(kUnknownPart);
    }

    size_t backquoted(const std::string& text, size_t at) {
        const size_t end = std::min(text.find('`', at), text.size());
        substitute(text.substr(at, end - at));
        return end + 1;
    }

    size_t expansion(const std::string& text, size_t at) {
        const char next = at + 1 < text.size() ? text[at + 1] : '\0';
        if (next == '(') {
            const size_t end = closing(text, at + 2, '(', ')');
            if (text.compare(at, 3, "$((") == 0) {
                put(kUnknownPart);
            } else {
                substitute(text.substr(at + 2, end - at - 2));
            }
            return end + 1;
        }
        if (next == '{') {
            const size_t end = closing(text, at + 2, '{', '}');
            noteExpansion(text.substr(at, end + 1 - at));
            braced(text.substr(at + 2, end - at - 2));
            return end + 1;
        }
        if (!isNameStart(next)) {
            if (next != '\0' && next != '\'' && next != '"') noteExpansion({'$', next});
            put(next == '\0' || isspace(static_cast<unsigned char>(next)) != 0 ? '$' : kUnknownPart);
            return std::string("@*#?-$!0123456789").find(next) == std::string::npos ? at + 1 : at + 2;
        }
        const size_t end = endOfName(text, at + 1);
        use(text.substr(at + 1, end - at - 1));
        return end;
    }

    // "NAME", "NAME:-word", "NAME#pattern", "#NAME"
    void braced(const std::string& inside) {
        const size_t start = inside.size() > 1 && inside[0] == '#' ? 1 : 0;
        const size_t end = endOfName(inside, start);
        const std::string name = inside.substr(start, end - start);
        const std::string rest = inside.substr(end);
        const size_t operation = rest.find_first_not_of(':');
        const char sign = operation > 1 ? '\0' : rest[operation];
        if (name.empty() || !isNameStart(name[0])) return put(kUnknownPart);
        if (sign == '=') set_.insert(name);
        if (sign != '\0' && std::string("-+=?").find(sign) != std::string::npos) return put(kUnknownPart);
        if (rest.empty() && start == 0) return use(name);
        uses_.push_back({name, line_});
        put(kUnknownPart);
    }

    void use(const std::string& name) {
        uses_.push_back({name, line_});
        const auto known = values_.find(name);
        place_.inWord = true;
        place_.word += known == values_.end() ? std::string(1, kUnknownPart) : known->second;
    }

    size_t redirection(const std::string& text, size_t at) {
        const bool isNumber =
            !place_.word.empty() && place_.word.find_first_not_of("0123456789") == std::string::npos;
        if (isNumber) place_.word.clear(), place_.inWord = false;
        endWord();
        noteExpansion(text.compare(at, 3, "<<<") == 0 ? "<<<" : " ");
        if (text.compare(at, 2, "<<") == 0 && text.compare(at, 3, "<<<") != 0) return document(text, at + 2);
        place_.pending = text[at] == '>' ? eTarget : eSource;
        while (at < text.size() && std::string("<>|").find(text[at]) != std::string::npos)
            ++at;
        if (at < text.size() && text[at] == '&') {
            place_.pending = eSource;
            ++at;
        }
        return at;
    }

    size_t document(const std::string& text, size_t at) {
        at = text.find_first_not_of("- \t", at);
        if (at == std::string::npos) return text.size();
        std::string end;
        for (; at < text.size() && std::string(" \t\n;|&<>)").find(text[at]) == std::string::npos; ++at) {
            if (std::string("'\"\\").find(text[at]) == std::string::npos) end += text[at];
        }
        place_.endsOfDocuments.push_back(end);
        return at;
    }

    void endWord() {
        if (!place_.inWord) return;
        if (place_.pending == eTarget) place_.command.targets.push_back(place_.word);
        if (place_.pending == eWord) {
            if (place_.command.words.empty()) place_.command.line = line_;
            place_.command.words.push_back(place_.word);
        }
        place_.pending = eWord;
        place_.word.clear();
        place_.inWord = false;
    }

    void endCommand() {
        endWord();
        place_.pending = eWord;
        Words& words = place_.command.words;
        while (!words.empty() && (kPrefixes.count(words.front()) != 0 || assign(words.front())))
            words.erase(words.begin());
        if (!words.empty()) noteSetting(words);
        if (!words.empty() || !place_.command.targets.empty()) script_->commands.push_back(place_.command);
        place_.command = {};
        place_.command.line = line_;
        place_.firstUse = uses_.size();
    }

    // "NAME=value"; a second value makes the variable unknown.
    bool assign(const std::string& word) {
        const size_t end = endOfName(word, 0);
        if (end == 0 || !isNameStart(word[0]) || end >= word.size()) return false;
        if (word[end] != '=' && word.compare(end, 2, "+=") != 0) return false;
        setTo(word.substr(0, end), word[end] == '=' ? word.substr(end + 1) : std::string(1, kUnknownPart));
        return true;
    }

    void setTo(const std::string& name, const std::string& value) {
        const bool isKnown = value.find(kUnknownPart) == std::string::npos && set_.count(name) == 0;
        set_.insert(name);
        values_.erase(name);
        if (isKnown) values_[name] = value;
    }

    void noteSetting(const Words& words) {
        const std::string& name = words.front();
        const bool isRead = name == "read";
        if (name == "." || name == "source" || name == "eval") isOpen_ = true;
        if (name == "for" && words.size() > 1)
            setTo(words[1], words.size() == 4 ? words[3] : std::string(1, kUnknownPart));
        if (name == "getopts" && words.size() > 2) set_.insert(words[2]);
        // A tested variable may be unset.
        for (size_t i = 1; i + 1 < words.size(); ++i) {
            if (words[i] == "-n" || words[i] == "-z" || words[i] == "=" || words[i] == "!=") allowLastUses();
        }
        if (!isRead && name != "export" && name != "local" && name != "readonly" && name != "declare" &&
            name != "typeset")
            return;
        for (size_t i = 1; i < words.size(); ++i) {
            if (!assign(words[i]) && words[i][0] != '-') setTo(words[i], std::string(1, kUnknownPart));
        }
    }

    // Those of the command that ends.
    void allowLastUses() {
        for (size_t i = place_.firstUse; i < uses_.size(); ++i)
            set_.insert(uses_[i].name);
    }

    enum Pending { eWord, eTarget, eSource };

    // Where the reader is in a command; a substitution has one of its own.
    struct Place {
        std::string word;
        bool inWord = false;
        Pending pending = eWord;  // what the next word is
        ShellCommand command = {{}, {}, 1};
        Words endsOfDocuments;  // of this line
        size_t firstUse = 0;    // of the command, among `uses_`
    };

    ShellScript* script_;
    size_t line_ = 1;
    size_t depth_ = 0;
    Place place_;
    std::map<std::string, std::string> values_;
    std::set<std::string> set_;
    std::vector<ShellVariable> uses_;
    bool isOpen_ = false;  // code that is not here may set any variable
};

}  // namespace

ShellScript readScript(const std::string& script) {
    ShellScript result;
    Reader reader(&result);
    reader.read(script, 1);
    reader.finish();
    return result;
}
