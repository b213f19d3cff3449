#include "checker/server.h"

#include "checker/rules.h"
#include "host/digests.h"
#include "host/leftovers.h"
#include "host/progress_bar.h"

#include <cerrno>
#include <curl/curl.h>
#include <memory>

namespace {

constexpr long kConnectSeconds = 20;
constexpr long kStalledSeconds = 30;
constexpr long kFound = 200;
constexpr long kRedirect = 300;
constexpr long kRefused = 400;

using Curl = std::unique_ptr<CURL, void (*)(CURL*)>;

// The result of one request; the bytes are not kept.
struct Answer {
    Digest sha256{EVP_sha256()};
    uint64_t size = 0;   // bytes
    uint64_t limit = 0;  // bytes after which no more is read; 0: none
    ProgressBar* bar = nullptr;
    CURLcode code = CURLE_OK;
    long status = 0;      // of HTTP; 0: another protocol, or no answer
    std::string target;   // of a redirect
    std::string message;  // libcurl's
};

size_t take(char* bytes, size_t one, size_t count, void* data) {
    Answer* answer = static_cast<Answer*>(data);
    const size_t size = one * count;
    if (interruption()) return 0;
    answer->sha256.add(bytes, size);
    answer->size += size;
    reportWork(answer->bar->progress(), size);
    return answer->limit != 0 && answer->size > answer->limit ? 0 : size;
}

/// \param from the byte at which the answer is to begin, as after a broken transfer.
void ask(const std::string& url, uint64_t from, Answer* answer) {
    const Curl curl(curl_easy_init(), curl_easy_cleanup);
    if (curl == nullptr) {
        answer->code = CURLE_OUT_OF_MEMORY;
        answer->message = "no memory";
        return;
    }
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_CONNECTTIMEOUT, kConnectSeconds);
    curl_easy_setopt(curl.get(), CURLOPT_LOW_SPEED_TIME, kStalledSeconds);
    curl_easy_setopt(curl.get(), CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_RESUME_FROM_LARGE, static_cast<curl_off_t>(from));
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, take);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, answer);
    answer->code = curl_easy_perform(curl.get());
    answer->message = curl_easy_strerror(answer->code);
    char* target = nullptr;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &answer->status);
    curl_easy_getinfo(curl.get(), CURLINFO_REDIRECT_URL, &target);
    if (target != nullptr) answer->target = target;
}

struct ServerRule {
    const SpecView& spec;
    Findings* findings;
    ProgressBar* bar;

    void check(const TarFacts& tar) const {
        Answer answer;
        answer.bar = bar;
        answer.limit = tar.limit > 0 ? static_cast<uint64_t>(tar.limit) : 0;
        bar->begin(tar.url.substr(tar.url.rfind('/') + 1));
        ask(tar.url, 0, &answer);
        const std::string fault = faultOf(answer);
        if (!fault.empty()) {
            findings->add(eFetchFails, spec.at(tar.keyPrefix + "url"), tar.url + " " + fault + ".");
            return;
        }
        const Comparison comparison = {spec, findings};
        comparison.size(eLimitTooSmall, tar.keyPrefix + "dlsize", {tar.url, answer.size}, "limit", tar.limit);
        if (answer.code == CURLE_OK)
            comparison.digest(tar.keyPrefix + "hash", tar.url, answer.sha256.hex(), tar.hash);
        if (answer.code == CURLE_OK && answer.size > 1) checkRange(tar, answer.size);
    }

    // A transfer beyond the limit is ended by this program.
    static std::string faultOf(const Answer& answer) {
        if (answer.status >= kRefused) return "returns an HTTP error: " + std::to_string(answer.status);
        if (answer.status >= kRedirect)
            return "leads to " + answer.target + ", which a device does not follow";
        if (answer.status != 0 && answer.status != kFound)
            return "gives a part of a file: " + std::to_string(answer.status);
        const bool isOurs = answer.limit != 0 && answer.size > answer.limit;
        return answer.code == CURLE_OK || isOurs ? "" : "cannot be fetched: " + answer.message;
    }

    // After a broken transfer a device requests the rest.
    void checkRange(const TarFacts& tar, uint64_t size) const {
        Answer rest;
        rest.bar = bar;
        rest.limit = size;
        ask(tar.url, size - 1, &rest);
        if (rest.code == CURLE_OK && rest.size == 1) return;
        findings->add(eFetchNoRange, spec.at(tar.keyPrefix + "url"),
                      tar.url + " does not go on after a broken transfer: it gave " +
                          std::to_string(rest.size) + " bytes in place of the last one.");
    }
};

}  // namespace

Fault checkServer(const SpecView& spec, const Tars& tars, Findings* findings) {
    ProgressBar bar;
    uint64_t bytes = 0;
    for (const TarFacts& tar : tars)
        bytes += tar.expectedSize();
    bar.expect(bytes);
    if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) return {EIO, "libcurl cannot be initialized"};
    const ServerRule rule = {spec, findings, &bar};
    for (const TarFacts& tar : tars) {
        rule.check(tar);
        if (Fault fault = interruption()) return fault;
    }
    return {};
}
