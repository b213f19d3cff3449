// A download, against the simplest use of libcurl with the same options, and against the program curl, which has
// others.

#include "benchmarks.h"
#include "downloader/downloader.h"
#include "paired.h"
#include "transfer_files.h"

#include <cstdio>
#include <ctime>
#include <curl/curl.h>
#include <memory>
#include <stdexcept>

namespace {

void downloadWithLibcurl(const std::string& url, const std::string& target) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(target.c_str(), "w"), fclose);
    const std::unique_ptr<CURL, void (*)(CURL*)> curl(curl_easy_init(), curl_easy_cleanup);
    if (file == nullptr || curl == nullptr) throw std::runtime_error("no file or no libcurl handle");
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_MAXREDIRS, 3L);
    curl_easy_setopt(curl.get(), CURLOPT_LOW_SPEED_TIME, 180L);
    curl_easy_setopt(curl.get(), CURLOPT_LOW_SPEED_LIMIT, 100L);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, file.get());
    if (curl_easy_perform(curl.get()) != CURLE_OK) throw std::runtime_error("libcurl's download failed");
}

Cost costOfCurl(const ServedFile& file) {
    return costOfProgram({"curl", "--silent", "--fail", "--output", file.target(), file.url()});
}

}  // namespace

void download(const std::string& url, const std::string& target) {
    Downloader downloader(false, false);
    downloader.setup(url, target, 0, "");
    // The program's own reads the clock for each chunk too, and writes a file once a second.
    time_t last = 0;
    downloader.progress = [&last](int, int) { last = time(nullptr); };
    if (downloader.run(0, 0) != 0) throw std::runtime_error("the download failed");
}

void benchDownloadAgainstLibcurl(benchmark::State& state, size_t size) {
    const ServedFile file(size);
    comparePairs(
        state, [&] { return costOf([&] { download(file.url(), file.target()); }); },
        [&] { return costOf([&] { downloadWithLibcurl(file.url(), file.target()); }); });
}

void benchDownloadAgainstCurl(benchmark::State& state, size_t size, const std::string& self) {
    const ServedFile file(size);
    comparePairs(
        state,
        [&] {
            return costOfProgram({self, "download", file.url(), file.target()});
        },
        [&] { return costOfCurl(file); });
}

// The control: how far from 1 the same work is on this machine, at this time.
void benchCurlAgainstItself(benchmark::State& state, size_t size) {
    const ServedFile file(size);
    comparePairs(
        state, [&] { return costOfCurl(file); }, [&] { return costOfCurl(file); });
}
