#include "base_url.h"

#include <cerrno>
#include <cstring>

Fault normaliseBaseUrl(std::string* url) {
    while (!url->empty() && url->back() == '/')
        url->pop_back();
    const size_t scheme = url->find("://");
    bool good = scheme != std::string::npos && scheme > 0 && url->size() > scheme + 3;
    for (const char c : *url)
        good = good && static_cast<unsigned char>(c) > 0x20 && c != '\'' && c != '"' && c != 0x7F;
    if (good) return {};
    return {EINVAL, "--base-url: \"" + *url + "\" is not a URL such as http://updates.example/2.5"};
}

std::string fileNameBelow(const std::string& baseUrl, const std::string& url) {
    if (url.compare(0, baseUrl.size() + 1, baseUrl + "/") != 0) return "";
    const std::string name = url.substr(baseUrl.size() + 1);
    const bool plain = name != "." && name != ".." && strpbrk(name.c_str(), "/?#%") == nullptr;
    return plain ? name : "";
}
