#include "foreign_characters.h"

#include <cstdlib>

namespace {

constexpr char kAfterChunkName[] = "\"]:";
constexpr char kQuote[] = "a typographic quote stands there; write plain quotes, ' or \"";
constexpr char kUtf16[] = "the file is UTF-16; save it as UTF-8";

struct ForeignCharacter {
    std::string bytes;
    const char* sentence;
};

const ForeignCharacter kForeignCharacters[] = {
    {"\xEF\xBB\xBF", "a byte-order mark stands there; save the file without one"},
    {"\xFF\xFE", kUtf16},
    {"\xFE\xFF", kUtf16},
    {"\xE2\x80\x98", kQuote},
    {"\xE2\x80\x99", kQuote},
    {"\xE2\x80\x9C", kQuote},
    {"\xE2\x80\x9D", kQuote},
    {"\xE2\x80\x9E", kQuote},
    {"\xC2\xAB", kQuote},
    {"\xC2\xBB", kQuote},
    {"\xC2\xA0", "a no-break space stands there; write a plain one"},
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
