#include "update_spec/spec_signature.h"

#include "run/log_module.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

namespace {

constexpr int kSignatureSize = 256;
// A longer signature is cut here, which is a wrong length all the same.
constexpr int kSignatureBufferSize = 272;

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};
struct RsaFreer {
    void operator()(RSA* rsa) const { RSA_free(rsa); }
};
struct KeyFreer {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct DigestFreer {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_destroy(context); }
};
struct BioFreer {
    void operator()(BIO* chain) const { BIO_free_all(chain); }
};
using PublicKey = std::unique_ptr<EVP_PKEY, KeyFreer>;

// Returns null, with `*error` set, after a failure.
PublicKey readPublicKey(const char* path, int* error) {
    std::unique_ptr<FILE, FileCloser> file(fopen(path, "r"));
    if (file == nullptr) {
        *error = errno;
        LOG_MSG(LOG_LVL_ERROR, "Failed to open public-key file %s: %d", path, *error);
        return nullptr;
    }
    *error = ENOMEM;
    std::unique_ptr<RSA, RsaFreer> rsa(PEM_read_RSA_PUBKEY(file.get(), nullptr, nullptr, nullptr));
    file.reset();
    if (rsa == nullptr) return nullptr;
    PublicKey key(EVP_PKEY_new());
    if (key == nullptr || EVP_PKEY_assign(key.get(), EVP_PKEY_RSA, rsa.get()) != 1) return nullptr;
    static_cast<void>(rsa.release());  // the key owns it now
    return key;
}

// Returns 0 or EILSEQ. The casts are for the first headers of the 1.0 interface, which know no const here.
int decodeSignature(const char* text, size_t length, unsigned char (&signature)[kSignatureBufferSize]) {
    std::unique_ptr<BIO, BioFreer> chain(BIO_new(BIO_f_base64()));
    if (chain == nullptr) return EILSEQ;
    BIO_set_flags(chain.get(), BIO_FLAGS_BASE64_NO_NL);
    BIO* memory = BIO_new_mem_buf(const_cast<char*>(text), static_cast<int>(length));
    if (memory == nullptr) return EILSEQ;
    BIO_push(chain.get(), memory);
    return BIO_read(chain.get(), signature, sizeof signature) == kSignatureSize ? 0 : EILSEQ;
}

int verifyDigest(EVP_MD_CTX* context, EVP_PKEY* key, const char* text, size_t length,
                 unsigned char (&signature)[kSignatureBufferSize]) {
    if (EVP_DigestVerifyInit(context, nullptr, EVP_sha256(), nullptr, key) != 1) return EBADMSG;
    if (EVP_DigestUpdate(context, text, length) != 1) return EBADMSG;
    if (EVP_DigestVerifyFinal(context, signature, kSignatureSize) != 1) return EBADMSG;
    return 0;
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
    const PublicKey key = readPublicKey(keyFile, &error);
    if (key == nullptr) return error;
    const std::unique_ptr<EVP_MD_CTX, DigestFreer> context(EVP_MD_CTX_create());
    if (context == nullptr) return ENOMEM;
    unsigned char signature[kSignatureBufferSize];
    if (int rc = decodeSignature(signatureText, signatureTextLength, signature); rc != 0) return rc;
    return verifyDigest(context.get(), key.get(), text, textLength, signature);
}
