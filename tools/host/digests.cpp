#include "host/digests.h"

Digest::Digest(const EVP_MD* kind) : context_(EVP_MD_CTX_new()) {
    good_ = context_ != nullptr && EVP_DigestInit_ex(context_.get(), kind, nullptr) == 1;
}

void Digest::add(const void* bytes, size_t size) {
    good_ = good_ && EVP_DigestUpdate(context_.get(), bytes, size) == 1;
}

std::string Digest::hex() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!good_ || EVP_DigestFinal_ex(context_.get(), digest, &length) != 1) return "";
    return hexOf(std::string(digest, digest + length));
}

std::string hexOf(const std::string& bytes) {
    constexpr char kHexDigits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const unsigned char byte = static_cast<unsigned char>(c);
        text += kHexDigits[byte >> 4];
        text += kHexDigits[byte & 0xF];
    }
    return text;
}

namespace {

std::string hexDigest(const EVP_MD* kind, const std::string& bytes) {
    Digest digest(kind);
    digest.add(bytes.data(), bytes.size());
    return digest.hex();
}

}  // namespace

std::string hexMd5(const std::string& bytes) {
    return hexDigest(EVP_md5(), bytes);
}

std::string hexSha256(const std::string& bytes) {
    return hexDigest(EVP_sha256(), bytes);
}
