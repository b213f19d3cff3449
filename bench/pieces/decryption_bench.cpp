// The decryption of a fetched file, against the program openssl.

#include "benchmarks.h"
#include "paired.h"
#include "support/crypto.h"
#include "support/scratch.h"
#include "transfer/file_decryption.h"
#include "transfer_files.h"

#include <filesystem>
#include <stdexcept>

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
