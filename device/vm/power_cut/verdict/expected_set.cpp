#include "verdict/expected_set.h"

#include "files.h"

#include <openssl/evp.h>
#include <stdexcept>

namespace {

std::string md5Of(const std::string& bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_md5(), nullptr) != 1)
        throw std::runtime_error("no MD5");
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < size; ++i) {
        text += kDigits[digest[i] >> 4];
        text += kDigits[digest[i] & 15];
    }
    return text;
}

ExpectedImage readImage(const std::string& path) {
    const std::string bytes = readFileOrThrow(path);
    return {bytes, md5Of(bytes)};
}

}  // namespace

ExpectedSet readExpectedSet(const std::string& folder, const std::string& version, unsigned number) {
    const std::string images = folder + "/" + version;
    return {number, version, readImage(images + "/kernel.img"), readImage(images + "/rootfs.img")};
}
