// A scanner for Lua's tokens and a walk over nested table constructors. It never fails: what it does not
// understand has no line. What Lua refuses comes here too, so every token is consumed and nesting has a limit.

#include "spec_view/table_lines.h"

#include <cctype>
#include <cstdint>

namespace {

constexpr int kMaxDepth = 200;  // of tables in tables; Lua's own limit

struct Token {
    enum Kind { eEnd, eName, eText, eNumber, eSign };
    Kind kind = eEnd;
    std::string text;
    int line = 0;
};

class Scanner {
public:
    explicit Scanner(const std::string& source) : text_(source) { advance(); }

    const Token& peek() const { return token_; }
    bool at(char sign) const { return token_.kind == Token::eSign && token_.text[0] == sign; }

    void advance() {
        skipBlanks();
        token_ = Token();
        token_.line = line_;
        if (position_ >= text_.size()) return;
        const char c = text_[position_];
        if (isalpha(static_cast<unsigned char>(c)) != 0 || c == '_') return takeWord(Token::eName);
        if (isdigit(static_cast<unsigned char>(c)) != 0) return takeWord(Token::eNumber);
        if (c == '\'' || c == '"') return takeQuoted(c);
        if (c == '[' && longBracket(position_) > 0) {
            token_.kind = Token::eText;
            return skipLong(longBracket(position_));
        }
        token_.kind = Token::eSign;
        token_.text = c;
        ++position_;
        if (c == '=' && position_ < text_.size() && text_[position_] == '=') ++position_, token_.text = "~";
    }

private:
    void step() {
        if (text_[position_] == '\n') ++line_;
        ++position_;
    }

    void skipBlanks() {
        while (position_ < text_.size()) {
            if (isspace(static_cast<unsigned char>(text_[position_])) != 0) {
                step();
            } else if (text_.compare(position_, 2, "--") == 0) {
                position_ += 2;
                const size_t bracket = position_ < text_.size() ? longBracket(position_) : 0;
                if (bracket > 0) {
                    skipLong(bracket);
                } else {
                    while (position_ < text_.size() && text_[position_] != '\n')
                        ++position_;
                }
            } else {
                return;
            }
        }
    }

    void takeWord(Token::Kind kind) {
        token_.kind = kind;
        while (position_ < text_.size()) {
            const char c = text_[position_];
            if (isalnum(static_cast<unsigned char>(c)) == 0 && c != '_' &&
                (c != '.' || kind != Token::eNumber))
                return;
            token_.text += c;
            ++position_;
        }
    }

    void takeQuoted(char quote) {
        token_.kind = Token::eText;
        for (++position_; position_ < text_.size() && text_[position_] != quote; step()) {
            if (text_[position_] == '\\' && position_ + 1 < text_.size()) step();
            token_.text += text_[position_];
        }
        ++position_;
    }

    // The length of the long bracket that opens at `from`; 0 if none does.
    size_t longBracket(size_t from) const {
        size_t end = from + 1;
        while (end < text_.size() && text_[end] == '=')
            ++end;
        return text_[from] == '[' && end < text_.size() && text_[end] == '[' ? end + 1 - from : 0;
    }

    void skipLong(size_t length) {
        const std::string closing = "]" + std::string(length - 2, '=') + "]";
        const size_t end = text_.find(closing, position_ + length);
        const size_t after = end == std::string::npos ? text_.size() : end + closing.size();
        while (position_ < after)
            step();
    }

    const std::string& text_;
    size_t position_ = 0;
    int line_ = 1;
    Token token_;
};

class Walk {
public:
    Walk(const std::string& text, TableLines* found, std::string* twice)
        : scanner_(text), lines_(found), repeated_(twice) {}

    void run() {
        while (scanner_.at('('))
            scanner_.advance();
        if (scanner_.at('{')) table("");
    }

private:
    // At the opening brace; leaves the scanner after the closing one.
    void table(const std::string& prefix) {
        ++depth_;
        scanner_.advance();
        int count = 0;
        while (scanner_.peek().kind != Token::eEnd && !scanner_.at('}')) {
            // A closing bracket without an opening one separates nothing, but an expression ends at it too.
            if (scanner_.at(',') || scanner_.at(';') || scanner_.at(')') || scanner_.at(']')) {
                scanner_.advance();
                continue;
            }
            entry(prefix, &count);
        }
        scanner_.advance();
        --depth_;
    }

    void entry(const std::string& prefix, int* count) {
        const int line = scanner_.peek().line;
        std::string key;
        if (scanner_.at('[')) {
            key = bracketedKey();
        } else if (scanner_.peek().kind == Token::eName) {
            key = scanner_.peek().text;
            scanner_.advance();
            if (!scanner_.at('=')) {  // not a key but the beginning of an expression
                note(prefix + std::to_string(++*count), line);
                return expression("");
            }
            scanner_.advance();
        } else {
            key = std::to_string(++*count);
        }
        if (key.empty()) return expression("");
        note(prefix + key, line);
        expression(prefix + key + ".");
    }

    void note(const std::string& path, int line) {
        if (!lines_->insert({path, line}).second) {
            *repeated_ = path;
            (*lines_)[path] = line;
        }
    }

    // At the opening bracket; leaves the scanner after the equals sign.
    std::string bracketedKey() {
        scanner_.advance();
        const Token key = scanner_.peek();
        scanner_.advance();
        const bool plain = (key.kind == Token::eText || key.kind == Token::eNumber) && scanner_.at(']');
        while (scanner_.peek().kind != Token::eEnd && !scanner_.at('='))
            scanner_.advance();
        scanner_.advance();
        return plain ? key.text : "";
    }

    // Up to the separator that ends it. A table is walked if it is all of the expression.
    void expression(const std::string& prefix) {
        if (scanner_.at('{') && !prefix.empty() && depth_ < kMaxDepth) table(prefix);
        int depth = 0;
        while (scanner_.peek().kind != Token::eEnd) {
            const bool closes = scanner_.at('}') || scanner_.at(')') || scanner_.at(']');
            if (depth == 0 && (closes || scanner_.at(',') || scanner_.at(';'))) return;
            if (scanner_.at('{') || scanner_.at('(') || scanner_.at('[')) ++depth;
            if (closes) --depth;
            scanner_.advance();
        }
    }

    Scanner scanner_;
    TableLines* lines_;
    std::string* repeated_;
    int depth_ = 0;
};

}  // namespace

TableLines findTableLines(const std::string& text, std::string* repeated) {
    TableLines lines;
    repeated->clear();
    Walk(text, &lines, repeated).run();
    return lines;
}
