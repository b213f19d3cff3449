// URLs that libcurl refuses, or that name the device itself.

#include "checker/dependencies.h"
#include "checker/rules.h"

#include <algorithm>
#include <cctype>
#include <curl/curl.h>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char* kSchemes[] = {"http", "https", "ftp", "ftps", "sftp", "scp", "tftp", "file"};
constexpr const char* kFillingWords[] = {"changeme", "change-me", "change_me", "replaceme", "fixme"};

void checkUrl(const std::string& url, const FindingPlace& place, Findings* findings) {
    if (std::any_of(url.begin(), url.end(), [](unsigned char c) { return c <= ' '; })) {
        findings->add(eUrlWhitespace, place, "libcurl refuses a URL with whitespace or a control character.");
    }
    const size_t end = url.find("://");
    if (end == std::string::npos) return;  // http is meant
    std::string scheme = url.substr(0, end);
    std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    const auto isSame = [&scheme](const char* known) { return scheme == known; };
    if (std::none_of(std::begin(kSchemes), std::end(kSchemes), isSame))
        findings->add(eUrlScheme, place, "libcurl knows no scheme \"" + scheme + "\".");
}

// What libcurl cannot take apart, as a port or a host. Spaces and schemes have findings of their own.
void checkParsed(const std::string& url, const FindingPlace& place, Findings* findings) {
    const std::unique_ptr<CURLU, void (*)(CURLU*)> parser(curl_url(), curl_url_cleanup);
    const bool isJudged = std::any_of(url.begin(), url.end(), [](unsigned char c) { return c <= ' '; });
    if (parser == nullptr || isJudged) return;
    const CURLUcode code =
        curl_url_set(parser.get(), CURLUPART_URL, url.c_str(), CURLU_NON_SUPPORT_SCHEME | CURLU_GUESS_SCHEME);
    if (code != CURLUE_OK && code != CURLUE_NO_HOST) {
        findings->add(eUrlRefused, place,
                      std::string("libcurl refuses the URL: ") + curl_url_strerror(code) + ".");
        return;
    }
    const auto part = [&parser](CURLUPart which) {
        char* text = nullptr;
        const bool isThere = curl_url_get(parser.get(), which, &text, 0) == CURLUE_OK;
        std::string copy = isThere ? text : "";
        curl_free(text);
        return copy;
    };
    const std::string scheme = part(CURLUPART_SCHEME);
    const std::string port = part(CURLUPART_PORT);
    if ((scheme == "https" && port == "80") || (scheme == "http" && port == "443"))
        findings->add(eUrlRefused, place, "Port " + port + " is not that of " + scheme + ".").severity =
            eWarning;
}

// In lower case, without user, port and brackets; empty: the URL names none.
std::string hostOf(const std::string& url) {
    const size_t scheme = url.find("://");
    std::string host = url.substr(scheme == std::string::npos ? 0 : scheme + 3);
    host = host.substr(0, host.find_first_of("/?#"));
    host.erase(0, host.rfind('@') + 1);
    host = host.compare(0, 1, "[") == 0 ? host.substr(1, host.find(']') - 1) : host.substr(0, host.find(':'));
    std::transform(host.begin(), host.end(), host.begin(), [](unsigned char c) { return std::tolower(c); });
    return host;
}

// 127.0.0.0/8 is loopback as a whole.
bool isLoopback(const std::string& url) {
    const std::string host = hostOf(url);
    const bool isAddress = host.find_first_not_of("0123456789.") == std::string::npos;
    return host == "localhost" || host == "::1" || host == "0.0.0.0" ||
           (isAddress && host.compare(0, 4, "127.") == 0);
}

// The keys of all URLs that a device fetches, and the URLs.
using Urls = std::vector<std::pair<std::string, std::string>>;

Urls urlsOf(const SpecView& spec) {
    Urls urls;
    if (spec.fetchesScriptTar()) urls.emplace_back("script_url", spec.text("script_url"));
    for (const ImageView& image : spec.images) {
        if (image.hasText("url")) urls.emplace_back(image.key("url"), image.text("url"));
    }
    return urls;
}

// "@VERSION@"
bool hasMarkedWord(const std::string& url) {
    for (size_t at = url.find('@'); at != std::string::npos; at = url.find('@', at + 1)) {
        const size_t end =
            url.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_", at + 1);
        if (end != std::string::npos && end > at + 1 && url[end] == '@') return true;
    }
    return false;
}

// "CHANGEME", in any case of letters
bool hasFillingWord(std::string url) {
    std::transform(url.begin(), url.end(), url.begin(), [](unsigned char c) { return std::tolower(c); });
    return std::any_of(std::begin(kFillingWords), std::end(kFillingWords),
                       [&url](const char* word) { return url.find(word) != std::string::npos; });
}

// libcurl accepts them all; a server may not. '$' is one only before a name. Empty: there is none.
std::string oddCharacter(const std::string& url) {
    for (size_t i = 0; i < url.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(url[i]);
        const unsigned char next = static_cast<unsigned char>(i + 1 < url.size() ? url[i + 1] : '\0');
        if (c >= 0x80) return "a character that is not ASCII";
        const bool isEscape = i + 2 < url.size() && isxdigit(next) != 0 &&
                              isxdigit(static_cast<unsigned char>(url[i + 2])) != 0;
        if (c == '%' && !isEscape) return "a \"%\" that two hex digits do not follow";
        const bool isVariable = c == '$' && (isalpha(next) != 0 || next == '(');
        if (isVariable || std::string("<>{}|\\^`\"").find(url[i]) != std::string::npos)
            return std::string("\"") + url[i] + "\"";
    }
    if (hasFillingWord(url)) return "a word that stands for another";
    return hasMarkedWord(url) ? "a word between \"@\"" : "";
}

void checkTarget(const std::string& url, const FindingPlace& place, Findings* findings) {
    const std::string odd = oddCharacter(url);
    if (!odd.empty())
        findings->add(eUrlCharacter, place, "The URL has " + odd + ", as from an incomplete template.");
    const std::string host = hostOf(url);
    const bool isFile = url.compare(0, 5, "file:") == 0;
    if (!isFile && (host.empty() || host == "http" || host == "https")) {
        findings->add(eUrlHost, place,
                      host.empty() ? "The URL names no host." : "The URL's host is \"" + host + "\".");
        return;
    }
    const size_t scheme = url.find("://");
    const size_t start = scheme == std::string::npos ? 0 : scheme + 3;
    const std::string path = url.substr(0, url.find_first_of("?#"));
    const size_t slash = path.find('/', start);
    const size_t at = url.find('@', start);
    if (at != std::string::npos && at < slash)
        findings->add(eUrlCredentials, place,
                      "The URL has a user or a password, which anyone can read in the spec.");
    if (url.find('?') == std::string::npos && (slash == std::string::npos || path.back() == '/'))
        findings->add(eUrlFolder, place, "The URL names no file, but a folder.");
}

// If all URLs are on loopback, the update may be for a rehearsal on the machine that serves it.
void checkLoopback(const SpecView& spec, const Urls& urls, Findings* findings) {
    const auto isLocal = [](const Urls::value_type& url) { return isLoopback(url.second); };
    const auto first = std::find_if(urls.begin(), urls.end(), isLocal);
    if (first == urls.end()) return;
    Finding& finding =
        findings->add(eUrlLoopback, spec.at(first->first),
                      "\"" + hostOf(first->second) + "\" is the device itself, which serves no files.");
    if (!std::all_of(urls.begin(), urls.end(), isLocal)) finding.severity = eWarning;
}

// A folder of the URL that is named after another version than those of the images.
void checkFolders(const SpecView& spec, const std::string& url, const FindingPlace& place,
                  Findings* findings) {
    std::vector<std::string> versions;
    for (const ImageView& image : spec.images)
        versions.push_back(image.text("version"));
    const size_t scheme = url.find("://");
    const size_t path = url.find('/', scheme == std::string::npos ? 0 : scheme + 3);
    if (path == std::string::npos) return;
    const std::string other = otherVersion(url.substr(path), versions);
    if (!other.empty())
        findings->add(eUrlVersion, place,
                      "The URL has the version " + other + ", and no image of the spec has.");
}

}  // namespace

Findings checkUrls(const SpecView& spec) {
    Findings findings;
    const Urls urls = urlsOf(spec);
    for (const auto& url : urls) {
        checkUrl(url.second, spec.at(url.first), &findings);
        checkParsed(url.second, spec.at(url.first), &findings);
        checkTarget(url.second, spec.at(url.first), &findings);
        checkFolders(spec, url.second, spec.at(url.first), &findings);
    }
    checkLoopback(spec, urls, &findings);
    return findings;
}
