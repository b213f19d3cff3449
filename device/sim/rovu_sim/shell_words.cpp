#include "rovu_sim/shell_words.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rovusim {
namespace {

bool isControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

bool isSafeBare(char c) {
    const bool alnum = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return alnum || std::strchr("_-./:=,+@%", c) != nullptr;
}

std::string quoteControls(const std::string& word) {
    std::string out = "$'";
    for (char c : word) {
        if (c == '\\' || c == '\'') {
            out += '\\';
            out += c;
        } else if (isControl(c)) {
            char hex[8];
            snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned char>(c));
            out += hex;
        } else {
            out += c;
        }
    }
    return out + "'";
}

// Appends the characters up to the closing quote and sets `at` after it.
void readQuoted(const std::string& line, size_t* at, bool escapes, std::string* word) {
    size_t i = *at;
    for (; i < line.size() && line[i] != '\''; ++i) {
        if (!escapes || line[i] != '\\' || i + 1 >= line.size()) {
            *word += line[i];
        } else if (line[i + 1] == 'x' && i + 3 < line.size()) {
            const std::string hex = line.substr(i + 2, 2);
            *word += static_cast<char>(std::strtoul(hex.c_str(), nullptr, 16));
            i += 3;
        } else {
            *word += line[++i];
        }
    }
    *at = i + 1;
}

}  // namespace

std::string quoteForShell(const std::string& word) {
    bool bare = !word.empty();
    for (char c : word) {
        if (isControl(c)) return quoteControls(word);
        if (!isSafeBare(c)) bare = false;
    }
    if (bare) return word;
    std::string out = "'";
    for (char c : word) {
        if (c == '\'') {
            out += "'\\''";
        } else {
            out += c;
        }
    }
    return out + "'";
}

std::vector<std::string> splitShellWords(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    size_t i = 0;
    while (i < line.size()) {
        const char c = line[i++];
        if (c == ' ') {
            if (inWord) words.push_back(word);
            word.clear();
            inWord = false;
            continue;
        }
        inWord = true;
        if (c == '\'') {
            readQuoted(line, &i, false, &word);
        } else if (c == '$' && i < line.size() && line[i] == '\'') {
            ++i;
            readQuoted(line, &i, true, &word);
        } else if (c == '\\' && i < line.size()) {
            word += line[i++];
        } else {
            word += c;
        }
    }
    if (inWord) words.push_back(word);
    return words;
}

}  // namespace rovusim
