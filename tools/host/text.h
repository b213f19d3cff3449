// What std::string lacks.

#pragma once

#include <string>

inline bool startsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

inline bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// Whether the text begins with `start`. \param rest receives what follows, if so; it may be the text itself.
inline bool splitStart(const std::string& text, const std::string& start, std::string* rest) {
    if (!startsWith(text, start)) return false;
    *rest = text.substr(start.size());
    return true;
}

inline void replaceAll(const std::string& from, const std::string& to, std::string* text) {
    for (size_t at = text->find(from); at != std::string::npos; at = text->find(from, at + to.size()))
        text->replace(at, from.size(), to);
}
