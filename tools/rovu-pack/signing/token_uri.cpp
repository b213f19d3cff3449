#include "token_uri.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace {

constexpr char kScheme[] = "pkcs11:";
constexpr char kFileScheme[] = "file:";

// `*rest` receives what follows.
bool startsWith(const std::string& start, const std::string& text, std::string* rest) {
    if (text.compare(0, start.size(), start) != 0) return false;
    *rest = text.substr(start.size());
    return true;
}

std::string decodePercent(const std::string& text) {
    std::string decoded;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool isCode = text[i] == '%' && i + 2 < text.size() &&
                            isxdigit(static_cast<unsigned char>(text[i + 1])) &&
                            isxdigit(static_cast<unsigned char>(text[i + 2]));
        if (isCode) {
            decoded += static_cast<char>(strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

bool takePin(const std::string& attribute, TokenUri* uri) {
    std::string value;
    if (startsWith("pin-value=", attribute, &value)) {
        uri->pin = decodePercent(value);
    } else if (startsWith("pin-source=", attribute, &value)) {
        uri->pinSource = decodePercent(value);
        startsWith(kFileScheme, uri->pinSource, &uri->pinSource);
    } else {
        return false;
    }
    return true;
}

// The attributes that do not name the PIN.
std::string keepOthers(const std::string& attributes, char separator, TokenUri* uri) {
    std::string kept;
    for (size_t at = 0; at <= attributes.size();) {
        const size_t end = std::min(attributes.find(separator, at), attributes.size());
        const std::string attribute = attributes.substr(at, end - at);
        if (!takePin(attribute, uri)) kept += (kept.empty() ? "" : std::string(1, separator)) + attribute;
        at = end + 1;
    }
    return kept;
}

}  // namespace

bool isTokenUri(const std::string& name) {
    return name.compare(0, sizeof kScheme - 1, kScheme) == 0;
}

TokenUri splitTokenUri(const std::string& uri) {
    TokenUri split;
    const size_t start = sizeof kScheme - 1;
    const size_t question = std::min(uri.find('?'), uri.size());
    split.object = kScheme + keepOthers(uri.substr(start, question - start), ';', &split);
    const std::string query = question < uri.size() ? uri.substr(question + 1) : "";
    const std::string rest = keepOthers(query, '&', &split);
    if (!rest.empty()) split.object += "?" + rest;
    return split;
}
