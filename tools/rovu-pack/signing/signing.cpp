#include "signing/signing.h"

#include "host/digests.h"
#include "host/files.h"
#include "signing/key_files.h"
#include "update_spec/spec_signature.h"

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
