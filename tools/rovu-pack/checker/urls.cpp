// URLs that libcurl does not even try.

#include "rules.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace {

constexpr const char* kSchemes[] = {"http", "https", "ftp", "ftps", "sftp", "scp", "tftp", "file"};

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

}  // namespace

Findings checkUrls(const SpecView& spec) {
    Findings findings;
    if (spec.fetchesScriptTar()) checkUrl(spec.text("script_url"), spec.at("script_url"), &findings);
    for (const ImageView& image : spec.images)
        checkUrl(image.text("url"), spec.at(image.key("url")), &findings);
    return findings;
}
