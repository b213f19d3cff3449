// Signatures with libcrypto: RSASSA-PKCS1-v1_5 with SHA-256 under 2048 bits, in Base64 on one line.

#include "signing.h"

#include "files.h"
#include "spec_signature.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

namespace {

constexpr int kKeyBits = 2048;
constexpr size_t kSignatureSize = 256;      // bytes
constexpr size_t kSignatureTextSize = 344;  // characters of Base64
constexpr size_t kLeastSuspectedSize = 64;  // characters on a line that no comment has without a blank
constexpr char kMarker[] = "--";

using Bio = std::unique_ptr<BIO, int (*)(BIO*)>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, void (*)(EVP_PKEY_CTX*)>;
using DigestContext = std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)>;

int cryptoError(const std::string& what, int code, std::string* error) {
    char reason[256];
    ERR_error_string_n(ERR_peek_last_error(), reason, sizeof reason);
    ERR_clear_error();
    *error = what + ": " + reason;
    return code;
}

std::string contentOf(BIO* memory) {
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(memory, &bytes);
    return size > 0 ? std::string(bytes, static_cast<size_t>(size)) : "";
}

std::string privatePemOf(EVP_PKEY* key) {
    const Bio memory(BIO_new(BIO_s_mem()), BIO_free);
    if (memory == nullptr ||
        PEM_write_bio_PKCS8PrivateKey(memory.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1)
        return "";
    return contentOf(memory.get());
}

bool isBase64(const std::string& text) {
    for (const char c : text) {
        if (isalnum(static_cast<unsigned char>(c)) == 0 && c != '+' && c != '/' && c != '=') return false;
    }
    return true;
}

std::string withoutBlanksAtEnd(std::string text) {
    while (!text.empty() && isspace(static_cast<unsigned char>(text.back())) != 0)
        text.pop_back();
    return text;
}

enum class Tail { eSignature, eComment, eUnclear };

Tail judgeTail(const std::string& tail) {
    const std::string content = withoutBlanksAtEnd(tail);
    if (!isBase64(content)) return Tail::eComment;
    if (content.size() == kSignatureTextSize && content.find('=') == kSignatureTextSize - 2)
        return Tail::eSignature;
    const bool endsLine = content.size() < tail.size();
    return endsLine && content.size() < kLeastSuspectedSize ? Tail::eComment : Tail::eUnclear;
}

}  // namespace

int makeKeyPair(std::string* privatePem, std::string* publicPem, std::string* error) {
    const KeyContext context(EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr), EVP_PKEY_CTX_free);
    EVP_PKEY* made = nullptr;
    if (context == nullptr || EVP_PKEY_keygen_init(context.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), kKeyBits) != 1 ||
        EVP_PKEY_keygen(context.get(), &made) != 1)
        return cryptoError("no key pair", EIO, error);
    const SigningKey key(made, EVP_PKEY_free);
    *privatePem = privatePemOf(key.get());
    *publicPem = publicPemOf(key.get());
    if (privatePem->empty() || publicPem->empty()) return cryptoError("no key pair", EIO, error);
    return 0;
}

int readSigningKey(const std::string& path, SigningKey* key, std::string* error) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "re"), fclose);
    if (file == nullptr) return fileError(path, errno, error);
    key->reset(PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr));
    if (*key == nullptr) return cryptoError(path + ": no private key in PEM", EINVAL, error);
    if (EVP_PKEY_base_id(key->get()) == EVP_PKEY_RSA && EVP_PKEY_bits(key->get()) == kKeyBits) return 0;
    *error = path + ": not an RSA key of 2048 bits, the only kind that a device verifies";
    return EINVAL;
}

std::string publicPemOf(EVP_PKEY* key) {
    const Bio memory(BIO_new(BIO_s_mem()), BIO_free);
    if (memory == nullptr || PEM_write_bio_PUBKEY(memory.get(), key) != 1) return "";
    return contentOf(memory.get());
}

int signText(const std::string& text, EVP_PKEY* key, std::string* spec, std::string* error) {
    const DigestContext context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    unsigned char signature[kSignatureSize];
    size_t size = sizeof signature;
    if (context == nullptr || EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key) != 1 ||
        EVP_DigestSignUpdate(context.get(), text.data(), text.size()) != 1 ||
        EVP_DigestSignFinal(context.get(), signature, &size) != 1 || size != kSignatureSize)
        return cryptoError("no signature", EIO, error);
    unsigned char base64[kSignatureTextSize + 1];
    const int length = EVP_EncodeBlock(base64, signature, static_cast<int>(size));
    *spec = text + kMarker + std::string(base64, base64 + length);
    return 0;
}

int unsignedTextOf(const std::string& spec, std::string* text, std::string* error) {
    *text = spec;
    if (const char* marker = findSignatureMarker(spec.data(), spec.size())) {
        const size_t at = static_cast<size_t>(marker - spec.data());
        const Tail tail = judgeTail(spec.substr(at + sizeof kMarker - 1));
        if (tail == Tail::eUnclear) {
            *error =
                "what stands behind its last two hyphens may be a damaged signature: remove it, or, if it is a "
                "comment, end its line and put a blank into it";
            return EINVAL;
        }
        if (tail == Tail::eSignature) text->resize(at);
    }
    if (text->empty() || text->back() != '\n') *text += '\n';
    return 0;
}
