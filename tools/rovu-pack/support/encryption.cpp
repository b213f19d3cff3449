// File encryption with libcrypto, in pieces. Both directions are one loop: only the cipher knows which it is.

#include "encryption.h"

#include "files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <openssl/evp.h>
#include <vector>

namespace {

constexpr size_t kChunk = 262144;
constexpr int kEncrypt = 1;
constexpr int kDecrypt = 0;

using File = std::unique_ptr<FILE, int (*)(FILE*)>;
using Cipher = std::unique_ptr<EVP_CIPHER_CTX, void (*)(EVP_CIPHER_CTX*)>;

struct Paths {
    const std::string& source;
    const std::string& target;
};

int put(FILE* out, const std::vector<unsigned char>& bytes, int size, const Paths& paths,
        std::string* error) {
    const size_t count = static_cast<size_t>(size);
    return fwrite(bytes.data(), 1, count, out) == count ? 0 : fileError(paths.target, errno, error);
}

int cipherFault(const Paths& paths, std::string* error) {
    *error = paths.source + ": the key does not fit, or the file is not whole";
    return EBADMSG;
}

int run(EVP_CIPHER_CTX* cipher, FILE* in, FILE* out, const Paths& paths, WorkProgress* progress,
        std::string* error) {
    std::vector<unsigned char> plain(kChunk);
    std::vector<unsigned char> result(kChunk + EVP_MAX_BLOCK_LENGTH);
    int size = 0;
    while (const size_t got = fread(plain.data(), 1, plain.size(), in)) {
        if (EVP_CipherUpdate(cipher, result.data(), &size, plain.data(), static_cast<int>(got)) != 1)
            return cipherFault(paths, error);
        if (int rc = put(out, result, size, paths, error); rc != 0) return rc;
        reportWork(progress, got);
    }
    if (ferror(in) != 0) return fileError(paths.source, errno, error);
    if (EVP_CipherFinal_ex(cipher, result.data(), &size) != 1) return cipherFault(paths, error);
    return put(out, result, size, paths, error);
}

int transform(int direction, const Paths& paths, const FileKey& key, WorkProgress* progress,
              std::string* error) {
    const File in(fopen(paths.source.c_str(), "rbe"), fclose);
    if (in == nullptr) return fileError(paths.source, errno, error);
    File out(fopen(paths.target.c_str(), "wbe"), fclose);
    if (out == nullptr) return fileError(paths.target, errno, error);
    const Cipher cipher(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    if (cipher == nullptr ||
        EVP_CipherInit_ex(cipher.get(), EVP_aes_256_cbc(), nullptr, key.key, key.iv, direction) != 1)
        return fileError(paths.source, ENOMEM, error);
    if (int rc = run(cipher.get(), in.get(), out.get(), paths, progress, error); rc != 0) return rc;
    return fclose(out.release()) == 0 ? 0 : fileError(paths.target, errno, error);
}

}  // namespace

int readSecret(const std::string& path, int64_t offset, FileKey* key, std::string* error) {
    const File file(fopen(path.c_str(), "rbe"), fclose);
    if (file == nullptr) return fileError(path, errno, error);
    unsigned char secret[kSecretSize];
    if (fseek(file.get(), offset, SEEK_SET) != 0) return fileError(path, errno, error);
    if (fread(secret, 1, sizeof secret, file.get()) != sizeof secret) {
        if (ferror(file.get()) != 0) return fileError(path, errno, error);
        *error = path + ": no " + std::to_string(kSecretSize) + " bytes at offset " + std::to_string(offset);
        return EINVAL;
    }
    key->present = true;
    memcpy(key->key, secret, sizeof key->key);
    memcpy(key->iv, secret + sizeof key->key, sizeof key->iv);
    return 0;
}

int encryptFileTo(const std::string& source, const std::string& target, const FileKey& key,
                  WorkProgress* progress, std::string* error) {
    return transform(kEncrypt, {source, target}, key, progress, error);
}

int decryptFileTo(const std::string& source, const std::string& target, const FileKey& key,
                  WorkProgress* progress, std::string* error) {
    return transform(kDecrypt, {source, target}, key, progress, error);
}
