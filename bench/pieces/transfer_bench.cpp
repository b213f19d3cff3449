// A download, against the simplest use of libcurl with the same options, and against the program curl, which has
// others.
//
// The decryption of a fetched file, against the program openssl.

#include "transfer_bench.h"

#include "benchmarks.h"
#include "downloader/downloader.h"
#include "paired.h"
#include "support/crypto.h"
#include "support/program.h"
#include "transfer/file_decryption.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <curl/curl.h>
#include <filesystem>
#include <memory>
#include <random>
#include <stdexcept>

MemoryDir::MemoryDir() : path_("/dev/shm/rovu-bench-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("cannot make a directory below /dev/shm");
}

MemoryDir::~MemoryDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string randomBytes(size_t size) {
    std::string bytes(size, '\0');
    std::mt19937_64 generator(1);
    size_t filled = 0;
    for (; filled + sizeof(uint64_t) <= size; filled += sizeof(uint64_t)) {
        const uint64_t value = generator();
        bytes.replace(filled, sizeof value, reinterpret_cast<const char*>(&value), sizeof value);
    }
    return bytes;
}

ServedFile::ServedFile(size_t size) {
    writeWholeFile(dir_.pathOf("file"), randomBytes(size));
    std::filesystem::create_directories(server_.directory());
    std::filesystem::create_symlink(dir_.pathOf("file"), server_.directory() + "/file");
}

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

namespace {

std::string hexOf(const std::string& bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (const char byte : bytes) {
        const unsigned int value = static_cast<unsigned char>(byte);
        hex += {kDigits[value >> 4], kDigits[value & 15]};
    }
    return hex;
}

}  // namespace

void decryptInPlace(const std::string& path) {
    const std::string fileKey = sampleFileKey();
    const uint8_t* key = reinterpret_cast<const uint8_t*>(fileKey.data());
    if (decryptFile(path.c_str(), key, key + 32) != 0) throw std::runtime_error("the decryption failed");
}

void benchDecryptionAgainstOpenssl(benchmark::State& state, size_t size, const std::string& self) {
    const MemoryDir dir;
    const std::string ciphertext = dir.pathOf("ciphertext");
    const std::string inPlace = dir.pathOf("in-place");
    writeWholeFile(ciphertext, encrypted(randomBytes(size), sampleFileKey()));
    const std::string key = hexOf(sampleFileKey().substr(0, 32));
    const std::string iv = hexOf(sampleFileKey().substr(32));
    comparePairs(
        state,
        [&] {
            std::filesystem::copy_file(ciphertext, inPlace,
                                       std::filesystem::copy_options::overwrite_existing);
            return costOfProgram({self, "decrypt", inPlace});
        },
        [&] {
            return costOfProgram({"openssl", "enc", "-d", "-aes-256-cbc", "-K", key, "-iv", iv, "-in",
                                  ciphertext, "-out", dir.pathOf("plain")});
        });
}
