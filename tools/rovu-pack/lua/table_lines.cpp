// A scanner for Lua's tokens and a walk over nested table constructors. It never fails: what it does not
// understand has no line. A text that Lua refuses never comes here.

#include "table_lines.h"

#include <cctype>
#include <cstdint>

namespace {

struct Token {
    enum Kind { eEnd, eName, eText, eNumber, eSign };
    Kind kind = eEnd;
    std::string text;
    int line = 0;
};

class Scanner {
public:
    explicit Scanner(const std::string& source) : text(source) { advance(); }

    const Token& peek() const { return token; }
    bool at(char sign) const { return token.kind == Token::eSign && token.text[0] == sign; }

    void advance() {
        skipBlanks();
        token = Token();
        token.line = line;
        if (position >= text.size()) return;
        const char c = text[position];
        if (isalpha(static_cast<unsigned char>(c)) != 0 || c == '_') return takeWord(Token::eName);
        if (isdigit(static_cast<unsigned char>(c)) != 0) return takeWord(Token::eNumber);
        if (c == '\'' || c == '"') return takeQuoted(c);
        if (c == '[' && longBracket(position) > 0) {
            token.kind = Token::eText;
            return skipLong(longBracket(position));
        }
        token.kind = Token::eSign;
        token.text = c;
        ++position;
        if (c == '=' && position < text.size() && text[position] == '=') ++position, token.text = "~";
    }

private:
    void step() {
        if (text[position] == '\n') ++line;
        ++position;
    }

    void skipBlanks() {
        while (position < text.size()) {
            if (isspace(static_cast<unsigned char>(text[position])) != 0) {
                step();
            } else if (text.compare(position, 2, "--") == 0) {
                position += 2;
                const size_t bracket = position < text.size() ? longBracket(position) : 0;
                if (bracket > 0) {
                    skipLong(bracket);
                } else {
                    while (position < text.size() && text[position] != '\n')
                        ++position;
                }
            } else {
                return;
            }
        }
    }

    void takeWord(Token::Kind kind) {
        token.kind = kind;
        while (position < text.size()) {
            const char c = text[position];
            if (isalnum(static_cast<unsigned char>(c)) == 0 && c != '_' &&
                (c != '.' || kind != Token::eNumber))
                return;
            token.text += c;
            ++position;
        }
    }

    void takeQuoted(char quote) {
        token.kind = Token::eText;
        for (++position; position < text.size() && text[position] != quote; step()) {
            if (text[position] == '\\' && position + 1 < text.size()) step();
            token.text += text[position];
        }
        ++position;
    }

    // The length of the long bracket that opens at `from`; 0 if none does.
    size_t longBracket(size_t from) const {
        size_t end = from + 1;
        while (end < text.size() && text[end] == '=')
            ++end;
        return text[from] == '[' && end < text.size() && text[end] == '[' ? end + 1 - from : 0;
    }

    void skipLong(size_t length) {
        const std::string closing = "]" + std::string(length - 2, '=') + "]";
        const size_t end = text.find(closing, position + length);
        const size_t behind = end == std::string::npos ? text.size() : end + closing.size();
        while (position < behind)
            step();
    }

    const std::string& text;
    size_t position = 0;
    int line = 1;
    Token token;
};

class Walk {
public:
    Walk(const std::string& text, TableLines* found, std::string* twice)
        : scanner(text), lines(found), repeated(twice) {}

    void run() {
        while (scanner.at('('))
            scanner.advance();
        if (scanner.at('{')) table("");
    }

private:
    // At the opening brace; leaves the scanner behind the closing one.
    void table(const std::string& prefix) {
        scanner.advance();
        int count = 0;
        while (scanner.peek().kind != Token::eEnd && !scanner.at('}')) {
            if (scanner.at(',') || scanner.at(';')) {
                scanner.advance();
                continue;
            }
            entry(prefix, &count);
        }
        scanner.advance();
    }

    void entry(const std::string& prefix, int* count) {
        const int line = scanner.peek().line;
        std::string key;
        if (scanner.at('[')) {
            key = bracketedKey();
        } else if (scanner.peek().kind == Token::eName) {
            key = scanner.peek().text;
            scanner.advance();
            if (!scanner.at('=')) {  // not a key but the beginning of an expression
                note(prefix + std::to_string(++*count), line);
                return expression("");
            }
            scanner.advance();
        } else {
            key = std::to_string(++*count);
        }
        if (key.empty()) return expression("");
        note(prefix + key, line);
        expression(prefix + key + ".");
    }

    void note(const std::string& path, int line) {
        if (!lines->insert({path, line}).second) {
            *repeated = path;
            (*lines)[path] = line;
        }
    }

    // At the opening bracket; leaves the scanner behind the equals sign.
    std::string bracketedKey() {
        scanner.advance();
        const Token key = scanner.peek();
        scanner.advance();
        const bool plain = (key.kind == Token::eText || key.kind == Token::eNumber) && scanner.at(']');
        while (scanner.peek().kind != Token::eEnd && !scanner.at('='))
            scanner.advance();
        scanner.advance();
        return plain ? key.text : "";
    }

    // Up to the separator that ends it. A table is walked if it is all of the expression.
    void expression(const std::string& prefix) {
        if (scanner.at('{') && !prefix.empty()) table(prefix);
        int depth = 0;
        while (scanner.peek().kind != Token::eEnd) {
            const bool closes = scanner.at('}') || scanner.at(')') || scanner.at(']');
            if (depth == 0 && (closes || scanner.at(',') || scanner.at(';'))) return;
            if (scanner.at('{') || scanner.at('(') || scanner.at('[')) ++depth;
            if (closes) --depth;
            scanner.advance();
        }
    }

    Scanner scanner;
    TableLines* lines;
    std::string* repeated;
};

}  // namespace

TableLines findTableLines(const std::string& text, std::string* repeated) {
    TableLines lines;
    repeated->clear();
    Walk(text, &lines, repeated).run();
    return lines;
}
