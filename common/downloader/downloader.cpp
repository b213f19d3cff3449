// Downloads through libcurl's easy interface.
//
// Every attempt has a handle and a stream of its own. What carries over is the count of bytes accepted
// so far: the file is appended to, and the server is asked for the rest.

#include "downloader/downloader.h"

#include "log_module.h"
#include "util/command.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <curl/curl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uint32_t kDigestLength = 64;  // characters
constexpr time_t kQuickFailure = 20;    // seconds; a failure that took longer has waited enough already
constexpr long kMaxRedirects = 3;
constexpr long kLowSpeedTime = 180;   // seconds
constexpr long kLowSpeedLimit = 100;  // bytes per second

// Network failures, after which another attempt may succeed.
bool isRetryable(CURLcode code) {
    return code == CURLE_OPERATION_TIMEDOUT || code == CURLE_COULDNT_RESOLVE_HOST ||
           code == CURLE_COULDNT_CONNECT;
}

int percentOf(const Downloader& downloader) {
    if (downloader.maxSize == Downloader::kNoLimit) return 0;
    return static_cast<int>(uint64_t{downloader.received} * 100 / downloader.maxSize);
}

// libcurl's write function. What lies beyond the limit is not written, and a result other than the length of
// the chunk makes libcurl give up: so the limit and a full disk end a transfer in the same way. The stream has the
// buffer of fopen, one block: more of it would be counted in `received` and not be in the file when the disk is full.
size_t writeBody(char* data, size_t size, size_t count, void* userData) {
    Downloader& downloader = *static_cast<Downloader*>(userData);
    const size_t room = downloader.maxSize - downloader.received;
    const size_t written = fwrite(data, 1, std::min(size * count, room), downloader.file);
    downloader.received += static_cast<uint32_t>(written);
    if (downloader.progress) {
        downloader.progress(static_cast<int>(downloader.attempts), percentOf(downloader));
    }
    return written;
}

CURLcode setOptions(CURL* curl, Downloader* downloader) {
    CURLcode code = curl_easy_setopt(curl, CURLOPT_URL, downloader->url.c_str());
    if (code == CURLE_OK) code = curl_easy_setopt(curl, CURLOPT_MAXREDIRS, kMaxRedirects);
    if (code == CURLE_OK) code = curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, kLowSpeedTime);
    if (code == CURLE_OK) code = curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, kLowSpeedLimit);
    if (code == CURLE_OK) code = curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, writeBody);
    if (code == CURLE_OK) code = curl_easy_setopt(curl, CURLOPT_WRITEDATA, downloader);
    if (code == CURLE_OK && downloader->verbose) code = curl_easy_setopt(curl, CURLOPT_VERBOSE, 1L);
    if (code == CURLE_OK && downloader->received != 0) {
        // Where `long` has 32 bits an offset beyond 2 GiB turns negative, which libcurl refuses.
        code = curl_easy_setopt(curl, CURLOPT_RESUME_FROM, static_cast<long>(downloader->received));
    }
    return code;
}

// Guards of one attempt. The stream is declared first: the handle, which writes to it, goes before it does.
struct StreamCloser {
    void operator()(FILE* stream) const { fclose(stream); }
};
using Stream = std::unique_ptr<FILE, StreamCloser>;

struct CurlCleaner {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};
using CurlHandle = std::unique_ptr<CURL, CurlCleaner>;

int32_t failTransfer(CURLcode code, uint32_t received) {
    LOG_MSG(LOG_LVL_WARNING, "CURL download failed after %u bytes: (%d) %s", received, static_cast<int>(code),
            curl_easy_strerror(code));
    return isRetryable(code) ? EAGAIN : -static_cast<int32_t>(code);
}

uint32_t sizeOf(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? static_cast<uint32_t>(info.st_size) : 0;
}

time_t monotonicSeconds() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

}  // namespace

int verifySha256(const std::string& path, const std::string& hash) {
    // The buffer ends with the digest: the file's name after it is not read.
    char digest[kDigestLength + 1];
    int exitStatus = 0;
    const std::string line = "sha256sum '" + path + "'";
    const int32_t got = runCommand(line.c_str(), digest, sizeof digest, &exitStatus, nullptr);
    if (got != static_cast<int32_t>(kDigestLength) || exitStatus != 0) return 1;
    return hash == digest ? 0 : 1;
}

int Downloader::setup(const std::string& source, const std::string& target, uint32_t limit,
                      const std::string& digest) {
    url = source;
    path = target;
    hash = digest;
    maxSize = limit == 0 ? kNoLimit : limit;
    attempts = 0;
    received = 0;
    ready = 1;
    return 0;
}

int32_t Downloader::run(uint32_t retries, uint32_t waitSeconds) {
    if (ready == 0) return EINVAL;
    for (uint32_t retriesUsed = 0;; ++retriesUsed) {
        LOG_MSG(LOG_LVL_INFO, "Downloading %s to %s, attempt %u...", url.c_str(), path.c_str(), attempts);
        if (dryRun) return 0;

        const time_t start = monotonicSeconds();
        const int32_t result = transferOnce();
        const time_t end = monotonicSeconds();
        if (result != EAGAIN) return result;
        if (retriesUsed == retries) return EAGAIN;

        if (end - start < kQuickFailure) {
            LOG_MSG(LOG_LVL_INFO, "Waiting for %d secs for network to recover...",
                    static_cast<int>(waitSeconds));
            sleep(waitSeconds);
        }
    }
}

int32_t Downloader::transferOnce() {
    Stream stream(fopen(path.c_str(), received != 0 ? "a" : "w"));
    if (stream == nullptr) {
        const int error = errno;
        LOG_MSG(LOG_LVL_ERROR, "Unable to open file %s: %d", path.c_str(), error);
        return error;
    }
    CurlHandle curl(curl_easy_init());
    if (curl == nullptr) {
        LOG_MSG(LOG_LVL_ERROR, "Failed to initialize curl");
        return ENOMEM;
    }
    if (const CURLcode code = setOptions(curl.get(), this); code != CURLE_OK) {
        LOG_MSG(LOG_LVL_ERROR, "curl_easy_setopt failed: %s", curl_easy_strerror(code));
        return -static_cast<int32_t>(code);
    }

    file = stream.get();
    const CURLcode code = curl_easy_perform(curl.get());
    ++attempts;
    file = nullptr;
    const int32_t failure = code == CURLE_OK ? 0 : failTransfer(code, received);

    // Closed by hand, and after the handle: a close that fails is a failed transfer. After another failure, what
    // the close cannot store was not received: the next attempt asks for it again.
    curl.reset();
    const bool isStored = fclose(stream.release()) == 0;
    const int error = errno;
    if (failure == EAGAIN && !isStored) received = std::min(received, sizeOf(path));
    if (failure != 0) return failure;
    if (!isStored) {
        LOG_MSG(LOG_LVL_ERROR, "Failed to close output file: %d", error);
        return error;
    }

    if (hash.empty() || verifySha256(path, hash) == 0) return 0;
    LOG_MSG(LOG_LVL_ERROR, "Hash verification failed");
    return EBADMSG;
}
