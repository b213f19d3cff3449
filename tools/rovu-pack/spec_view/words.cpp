// Edit distance with swaps of neighbours (optimal string alignment) over whole rows: the words are short.

#include "spec_view/words.h"

#include <algorithm>
#include <cstdlib>

namespace {

size_t distanceOf(const std::string& a, const std::string& b) {
    std::vector<std::vector<size_t>> rows(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) {
        for (size_t j = 0; j <= b.size(); ++j) {
            size_t& best = rows[i][j];
            if (i == 0 || j == 0) {
                best = i + j;
                continue;
            }
            const size_t changed = a[i - 1] == b[j - 1] ? 0 : 1;
            best = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + changed});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                best = std::min(best, rows[i - 2][j - 2] + 1);
        }
    }
    return rows[a.size()][b.size()];
}

}  // namespace

std::string nearestWord(const std::string& word, const std::vector<std::string>& words) {
    std::string nearest;
    size_t least = std::max<size_t>(2, word.size() / 3) + 1;  // farther off, it is another word
    for (const std::string& candidate : words) {
        const size_t distance = distanceOf(word, candidate);
        if (distance >= least || distance >= candidate.size()) continue;
        least = distance;
        nearest = candidate;
    }
    return nearest;
}

namespace {

constexpr char kAfterChunkName[] = "\"]:";
constexpr char kQuote[] = "there is a typographic quote; write plain quotes, ' or \"";
constexpr char kUtf16[] = "the file is UTF-16; save it as UTF-8";

struct ForeignCharacter {
    std::string bytes;
    const char* sentence;
};

const ForeignCharacter kForeignCharacters[] = {
    {"\xEF\xBB\xBF", "there is a byte-order mark; save the file without one"},
    {"\xFF\xFE", kUtf16},
    {"\xFE\xFF", kUtf16},
    {"\xE2\x80\x98", kQuote},
    {"\xE2\x80\x99", kQuote},
    {"\xE2\x80\x9C", kQuote},
    {"\xE2\x80\x9D", kQuote},
    {"\xE2\x80\x9E", kQuote},
    {"\xC2\xAB", kQuote},
    {"\xC2\xBB", kQuote},
    {"\xC2\xA0", "there is a no-break space; write a plain one"},
};

std::string lineOfText(const std::string& text, int number) {
    size_t begin = 0;
    for (int line = 1; line < number; ++line) {
        begin = text.find('\n', begin);
        if (begin == std::string::npos) return "";
        ++begin;
    }
    return text.substr(begin, text.find('\n', begin) - begin);
}

}  // namespace

std::string foreignCharacter(const std::string& text, const std::string& message) {
    const std::string line = lineOfText(text, lineInLuaMessage(message));
    for (const ForeignCharacter& character : kForeignCharacters) {
        const std::string named = "near '" + character.bytes.substr(0, 1);
        if (message.find(named) != std::string::npos && line.find(character.bytes) != std::string::npos)
            return character.sentence;
    }
    return "";
}

int lineInLuaMessage(const std::string& message) {
    const size_t at = message.find(kAfterChunkName);
    return at == std::string::npos ? 0 : atoi(message.c_str() + at + sizeof kAfterChunkName - 1);
}
