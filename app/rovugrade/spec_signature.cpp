// Signature verification with libcrypto. Text and signature are read from where they stand in the spec's
// buffer.

#include "spec_signature.h"

#include "log_module.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

namespace {

constexpr int kSignatureSize = 256;
// A longer signature is cut here, which is a wrong length all the same.
constexpr int kSignatureBufferSize = 272;

// Returns the key, which the caller frees, or null with `*error` set.
EVP_PKEY* readPublicKey(const char* path, int* error) {
    FILE* file = fopen(path, "r");
    if (file == nullptr) {
        *error = errno;
        LOG_MSG(LOG_LVL_ERROR, "Failed to open public-key file %s: %d", path, *error);
        return nullptr;
    }
    RSA* rsa = PEM_read_RSA_PUBKEY(file, nullptr, nullptr, nullptr);
    fclose(file);
    *error = ENOMEM;
    if (rsa == nullptr) return nullptr;
    EVP_PKEY* pkey = EVP_PKEY_new();
    if (pkey == nullptr || EVP_PKEY_assign(pkey, EVP_PKEY_RSA, rsa) != 1) {
        EVP_PKEY_free(pkey);
        RSA_free(rsa);
        return nullptr;
    }
    return pkey;
}

// Returns 0 or EILSEQ.
int decodeSignature(const char* text, size_t length, unsigned char (&signature)[kSignatureBufferSize]) {
    BIO* base64 = BIO_new(BIO_f_base64());
    if (base64 == nullptr) return EILSEQ;
    BIO_set_flags(base64, BIO_FLAGS_BASE64_NO_NL);
    BIO* memory = BIO_new_mem_buf(text, static_cast<int>(length));
    if (memory == nullptr) {
        BIO_free_all(base64);
        return EILSEQ;
    }
    BIO* chain = BIO_push(base64, memory);
    const int got = BIO_read(chain, signature, sizeof signature);
    BIO_free_all(chain);
    return got == kSignatureSize ? 0 : EILSEQ;
}

int verifyDigest(EVP_MD_CTX* context, EVP_PKEY* pkey, const char* text, size_t length,
                 const unsigned char* signature) {
    if (EVP_DigestVerifyInit(context, nullptr, EVP_sha256(), nullptr, pkey) != 1) return EBADMSG;
    if (EVP_DigestUpdate(context, text, length) != 1) return EBADMSG;
    if (EVP_DigestVerifyFinal(context, signature, kSignatureSize) != 1) return EBADMSG;
    return 0;
}

int verifyWithKey(EVP_PKEY* pkey, const char* text, size_t textLength, const char* signatureText,
                  size_t signatureTextLength) {
    EVP_MD_CTX* context = EVP_MD_CTX_create();
    if (context == nullptr) return ENOMEM;
    unsigned char signature[kSignatureBufferSize];
    int result = decodeSignature(signatureText, signatureTextLength, signature);
    if (result == 0) result = verifyDigest(context, pkey, text, textLength, signature);
    EVP_MD_CTX_destroy(context);
    return result;
}

}  // namespace

const char* findSignatureMarker(const char* file, size_t size) {
    const void* found = memrchr(file, '-', size);
    if (found == nullptr || found == file) return nullptr;
    const char* first = static_cast<const char*>(found) - 1;
    return *first == '-' ? first : nullptr;
}

int verifySpecSignature(const char* keyFile, const char* text, size_t textLength, const char* signatureText,
                        size_t signatureTextLength) {
    int error = 0;
    EVP_PKEY* pkey = readPublicKey(keyFile, &error);
    if (pkey == nullptr) return error;
    const int result = verifyWithKey(pkey, text, textLength, signatureText, signatureTextLength);
    EVP_PKEY_free(pkey);
    return result;
}
