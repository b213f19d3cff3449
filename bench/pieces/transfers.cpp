#include "transfers.h"

#include "downloader/downloader.h"
#include "transfer/file_decryption.h"

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <curl/curl.h>
#include <memory>
#include <stdexcept>

void download(const std::string& url, const std::string& target) {
    Downloader downloader(false, false);
    downloader.setup(url, target, 0, "");
    // The program's own reads the clock for each chunk too, and writes a file once a second.
    time_t last = 0;
    downloader.progress = [&last](int, int) { last = time(nullptr); };
    if (downloader.run(0, 0) != 0) throw std::runtime_error("the download failed");
}

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

void decryptInPlace(const std::string& path) {
    const uint8_t zeros[48] = {};
    if (decryptFile(path.c_str(), zeros, zeros + 32) != 0) throw std::runtime_error("the decryption failed");
}
