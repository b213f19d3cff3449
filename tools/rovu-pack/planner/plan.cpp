// The small vocabulary of a plan.

#include "plan.h"

#include <algorithm>

const char* outcomeText(ImageChoice::Outcome outcome) {
    constexpr const char* kTexts[] = {"kept", "dropped", "promoted", "refused"};
    return kTexts[outcome];
}

std::vector<std::string> wordsOfLine(const std::string& line) {
    std::vector<std::string> words(1);
    bool quoted = false;
    bool braced = false;
    for (const char c : line) {
        if (c == '\'') {
            quoted = !quoted;
        } else if (c == ' ' && !quoted && !braced) {
            if (!words.back().empty()) words.emplace_back();
        } else {
            if (c == '{') braced = true;
            if (c == '}') braced = false;
            words.back() += c;
        }
    }
    for (size_t i = 0; i < words.size();) {
        const size_t redirection = words[i] == "2>&-" ? 1 : words[i] == ">" ? 2 : 0;
        const auto from = words.begin() + static_cast<long>(i);
        words.erase(from, from + static_cast<long>(std::min(redirection, words.size() - i)));
        if (redirection == 0) ++i;
    }
    return words;
}
