// What the targets that take a spec have to keep out of the fuzzer's reach, because the format allows it.

#pragma once

#include <cstddef>
#include <string>

/// The most bytes that a device can be asked for at once. It also limits the work on a sparse list, whose
/// length Lua may take for any power of two.
constexpr size_t kLargestBlock = 16U << 20;

/// Whether `text` may get a function past the sandbox, which looks at the first occurrence of the word alone.
/// A function may run forever.
inline bool mayHoldFunction(const std::string& text) {
    const std::string word = "function";
    const size_t first = text.find(word);
    return first != std::string::npos && text.find(word, first + 1) != std::string::npos;
}
