#include "spec_input.h"

bool mayHoldFunction(const std::string& text) {
    const std::string word = "function";
    const size_t first = text.find(word);
    return first != std::string::npos && text.find(word, first + 1) != std::string::npos;
}
