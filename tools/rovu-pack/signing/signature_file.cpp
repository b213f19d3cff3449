#include "signature_file.h"

#include "crypto_fault.h"
#include "digests.h"
#include "files.h"

#include <cctype>
#include <openssl/rsa.h>

namespace {

std::string withoutSpace(const std::string& text) {
    std::string rest;
    for (const char c : text) {
        if (isspace(static_cast<unsigned char>(c)) == 0) rest += c;
    }
    return rest;
}

bool decodeBase64(const std::string& text, std::string* raw) {
    if (text.size() != kSignatureTextSize || text.find('=') != text.size() - 2) return false;
    unsigned char bytes[kSignatureTextSize];
    const unsigned char* from = reinterpret_cast<const unsigned char*>(text.data());
    if (EVP_DecodeBlock(bytes, from, static_cast<int>(text.size())) < static_cast<int>(kSignatureSize))
        return false;
    raw->assign(bytes, bytes + kSignatureSize);
    return true;
}

// What the signature holds under the public key, without its padding; empty if that is not PKCS#1 v1.5. With `kind`, the
// digest out of a DigestInfo of that kind.
std::string contentOf(const std::string& raw, const SigningKey& key, const EVP_MD* kind) {
    const KeyContext context(EVP_PKEY_CTX_new(key.get(), nullptr));
    unsigned char content[kSignatureSize];
    size_t size = sizeof content;
    const unsigned char* from = reinterpret_cast<const unsigned char*>(raw.data());
    const bool isGood = context != nullptr && EVP_PKEY_verify_recover_init(context.get()) == 1 &&
                        EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
                        (kind == nullptr || EVP_PKEY_CTX_set_signature_md(context.get(), kind) == 1) &&
                        EVP_PKEY_verify_recover(context.get(), content, &size, from, raw.size()) == 1;
    ERR_clear_error();
    return isGood ? std::string(content, content + size) : "";
}

}  // namespace

Fault readSignature(const std::string& path, std::string* raw) {
    std::string bytes;
    if (Fault fault = readWholeFile(path, &bytes)) return fault;
    if (bytes.size() == kSignatureSize) {
        raw->swap(bytes);
        return {};
    }
    if (decodeBase64(withoutSpace(bytes), raw)) return {};
    return {EINVAL, path + ": no signature: it has " + std::to_string(bytes.size()) +
                        " bytes, and is not the 256 bytes of a signature nor their Base64"};
}

Fault verifySignature(const std::string& text, const std::string& raw, const SigningKey& key) {
    const std::string required = hexSha256(text);
    const std::string found = hexOf(contentOf(raw, key, EVP_sha256()));
    if (found == required) return {};
    if (!found.empty()) {
        return {EBADMSG, "it signs the SHA-256 " + found + ", and that of the spec is " + required +
                             ": the spec was changed since, or its digest was hashed again"};
    }
    if (!contentOf(raw, key, nullptr).empty()) {
        return {
            EBADMSG,
            "it is by the right key, but not over a SHA-256 digest: a device verifies PKCS#1 v1.5 with the "
            "DigestInfo of SHA-256"};
    }
    return {EBADMSG, "it is by another key, or has another padding than PKCS#1 v1.5"};
}
