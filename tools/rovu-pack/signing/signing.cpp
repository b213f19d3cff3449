#include "signing.h"

#include "crypto_fault.h"
#include "digests.h"
#include "spec_signature.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <openssl/pem.h>
#include <openssl/rsa.h>

namespace {

constexpr size_t kLeastSuspectedSize = 64;  // characters on a line that no comment has without a space
constexpr char kMarker[] = "--";

using Bio = Handle<BIO, BIO_free>;

std::string contentOf(BIO* memory) {
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(memory, &bytes);
    return size > 0 ? std::string(bytes, static_cast<size_t>(size)) : "";
}

std::string privatePemOf(const SigningKey& key) {
    const Bio memory(BIO_new(BIO_s_mem()));
    if (memory == nullptr ||
        PEM_write_bio_PKCS8PrivateKey(memory.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1)
        return "";
    return contentOf(memory.get());
}

bool isBase64(const std::string& text) {
    for (const char c : text) {
        if (isalnum(static_cast<unsigned char>(c)) == 0 && c != '+' && c != '/' && c != '=') return false;
    }
    return true;
}

std::string withoutTrailingSpace(std::string text) {
    while (!text.empty() && isspace(static_cast<unsigned char>(text.back())) != 0)
        text.pop_back();
    return text;
}

enum class Tail { eNothing, eSignature, eComment, eUnclear };

Tail judgeTail(const std::string& tail) {
    const std::string content = withoutTrailingSpace(tail);
    if (content.empty()) return Tail::eNothing;
    if (!isBase64(content)) return Tail::eComment;
    if (content.size() == kSignatureTextSize && content.find('=') == kSignatureTextSize - 2)
        return Tail::eSignature;
    const bool endsLine = content.size() < tail.size();
    return endsLine && content.size() < kLeastSuspectedSize ? Tail::eComment : Tail::eUnclear;
}

}  // namespace

Fault makeKeyPair(std::string* privatePem, std::string* publicPem) {
    const KeyContext context(EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr));
    EVP_PKEY* made = nullptr;
    if (context == nullptr || EVP_PKEY_keygen_init(context.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), kKeyBits) != 1 ||
        EVP_PKEY_keygen(context.get(), &made) != 1)
        return cryptoFault("no key pair", EIO);
    const SigningKey key(made, EVP_PKEY_free);
    *privatePem = privatePemOf(key);
    *publicPem = publicPemOf(key);
    if (privatePem->empty() || publicPem->empty()) return cryptoFault("no key pair", EIO);
    return {};
}

std::string publicPemOf(const SigningKey& key) {
    const Bio memory(BIO_new(BIO_s_mem()));
    if (memory == nullptr || PEM_write_bio_PUBKEY(memory.get(), key.get()) != 1) return "";
    return contentOf(memory.get());
}

std::string fingerprintOf(const SigningKey& key) {
    unsigned char* der = nullptr;
    const int size = i2d_PUBKEY(key.get(), &der);
    if (size < 0) return "";
    std::string hex = hexSha256(std::string(der, der + size));
    OPENSSL_free(der);
    return hex;
}

Fault signText(const std::string& text, const SigningKey& key, std::string* spec) {
    const DigestContext context(EVP_MD_CTX_new());
    unsigned char signature[kSignatureSize];
    size_t size = sizeof signature;
    if (context == nullptr ||
        EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key.get()) != 1 ||
        EVP_DigestSignUpdate(context.get(), text.data(), text.size()) != 1 ||
        EVP_DigestSignFinal(context.get(), signature, &size) != 1 || size != kSignatureSize)
        return cryptoFault("no signature", EIO);
    *spec = specOf(text, std::string(signature, signature + size));
    return {};
}

std::string specOf(const std::string& text, const std::string& raw) {
    unsigned char base64[kSignatureTextSize + 1];
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(raw.data());
    const int length = EVP_EncodeBlock(base64, bytes, static_cast<int>(std::min(raw.size(), kSignatureSize)));
    return text + kMarker + std::string(base64, base64 + length);
}

Fault unsignedTextOf(const std::string& spec, std::string* text) {
    *text = spec;
    if (const char* marker = findSignatureMarker(spec.data(), spec.size())) {
        const size_t at = static_cast<size_t>(marker - spec.data());
        const Tail tail = judgeTail(spec.substr(at + sizeof kMarker - 1));
        if (tail == Tail::eUnclear) {
            return {EINVAL,
                    "what follows its last two hyphens may be a damaged signature: remove it, or, if it is a "
                    "comment, end its line and put a space into it"};
        }
        if (tail == Tail::eSignature || tail == Tail::eNothing) text->resize(at);
    }
    if (text->empty() || text->back() != '\n') *text += '\n';
    return {};
}
