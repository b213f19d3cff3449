#include "support/crypto.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

namespace {

unsigned char* bytesOf(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

std::string hexDigest(const EVP_MD* kind, const std::string& bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &size, kind, nullptr);
    std::string text;
    for (unsigned int i = 0; i < 2 * size; ++i)
        text += "0123456789abcdef"[digest[i / 2] >> (i % 2 == 0 ? 4 : 0) & 15];
    return text;
}

EVP_PKEY* makeKey() {
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr);
    EVP_PKEY* key = nullptr;
    EVP_PKEY_keygen_init(context);
    EVP_PKEY_CTX_set_rsa_keygen_bits(context, 2048);
    EVP_PKEY_keygen(context, &key);
    EVP_PKEY_CTX_free(context);
    return key;
}

EVP_PKEY* signingKey() {
    static EVP_PKEY* const key = makeKey();
    return key;
}

}  // namespace

std::string sampleFileKey() {
    return "a key of 32 bytes for the tests.an IV of 16 byte";
}

std::string encrypted(std::string bytes, std::string fileKey) {
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    std::string out(bytes.size() + 16, '\0');
    int size = 0;
    int rest = 0;
    EVP_EncryptInit_ex(context, EVP_aes_256_cbc(), nullptr, bytesOf(fileKey), bytesOf(fileKey) + 32);
    EVP_EncryptUpdate(context, bytesOf(out), &size, bytesOf(bytes), static_cast<int>(bytes.size()));
    EVP_EncryptFinal_ex(context, bytesOf(out) + size, &rest);
    EVP_CIPHER_CTX_free(context);
    return out.substr(0, static_cast<size_t>(size + rest));
}

std::string sha256Hex(const std::string& bytes) {
    return hexDigest(EVP_sha256(), bytes);
}

std::string md5Hex(const std::string& bytes) {
    return hexDigest(EVP_md5(), bytes);
}

std::string signedText(std::string text) {
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    std::string signature(256, '\0'), base64(345, '\0');
    size_t size = signature.size();
    EVP_DigestSignInit(context, nullptr, EVP_sha256(), nullptr, signingKey());
    EVP_DigestSign(context, bytesOf(signature), &size, bytesOf(text), text.size());
    EVP_MD_CTX_free(context);
    EVP_EncodeBlock(bytesOf(base64), bytesOf(signature), 256);
    return text + "--" + base64.c_str();
}

std::string publicKeyText() {
    BIO* memory = BIO_new(BIO_s_mem());
    PEM_write_bio_PUBKEY(memory, signingKey());
    std::string text(1000, '\0');
    text.resize(static_cast<size_t>(BIO_read(memory, text.data(), 1000)));
    BIO_free(memory);
    return text;
}
