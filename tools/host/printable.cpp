#include "host/printable.h"

#include <cstdint>
#include <cstdio>

namespace {

// Lead bytes of a character of 2, 3 and 4 bytes: the value under a mask, and the least code point.
struct Lead {
    unsigned char mask;
    unsigned char value;
    uint32_t least;
};
constexpr Lead kLeads[] = {{0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};

bool isCharacter(uint32_t point) {
    const bool isSurrogate = point >= 0xD800 && point <= 0xDFFF;
    return point <= 0x10FFFF && !isSurrogate;
}

bool isControl(uint32_t point) {
    return point < 0x20 || (point >= 0x7F && point < 0xA0);
}

// Bytes of the character at `at`, if it can be shown as it is; else 0.
size_t shownSize(const std::string& text, size_t at) {
    const auto byteAt = [&text](size_t i) { return static_cast<unsigned char>(text[i]); };
    if (byteAt(at) < 0x80) return isControl(byteAt(at)) ? 0 : 1;
    size_t size = 1;
    for (const Lead& lead : kLeads) {
        ++size;
        if ((byteAt(at) & lead.mask) != lead.value) continue;
        uint32_t point = byteAt(at) & static_cast<unsigned char>(~lead.mask);
        for (size_t i = at + 1; i < at + size; ++i) {
            if (i >= text.size() || (byteAt(i) & 0xC0) != 0x80) return 0;
            point = point << 6 | (byteAt(i) & 0x3F);
        }
        return point >= lead.least && isCharacter(point) && !isControl(point) ? size : 0;
    }
    return 0;
}

std::string escapeOf(char c) {
    if (c == '\n') return "\\n";
    if (c == '\r') return "\\r";
    if (c == '\t') return "\\t";
    char escape[5];
    snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(c));
    return escape;
}

}  // namespace

std::string printable(const std::string& text) {
    std::string shown;
    for (size_t at = 0; at < text.size();) {
        const size_t size = shownSize(text, at);
        shown += size == 0 ? escapeOf(text[at]) : text.substr(at, size);
        at += size == 0 ? 1 : size;
    }
    return shown;
}

std::string printableLines(const std::string& text) {
    std::string shown;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find('\n', at);
        shown += printable(text.substr(at, end - at));
        if (end == std::string::npos) break;
        shown += '\n';
        at = end + 1;
    }
    return shown;
}
