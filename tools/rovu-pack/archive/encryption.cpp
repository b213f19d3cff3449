#include "encryption.h"

#include "files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

Fault readSecret(const std::string& path, int64_t offset, FileKey* key) {
    File file;
    uint64_t size = 0;
    if (Fault fault = openRegularFile(path, &file, &size)) return fault;
    unsigned char secret[kSecretSize];
    if (fseek(file.get(), offset, SEEK_SET) != 0) return fileFault(path, errno);
    if (fread(secret, 1, sizeof secret, file.get()) != sizeof secret) {
        if (ferror(file.get()) != 0) return fileFault(path, errno);
        return {EINVAL, path + ": no " + std::to_string(kSecretSize) + " bytes at offset " +
                            std::to_string(offset) + ", since it has " + std::to_string(size)};
    }
    key->present = true;
    memcpy(key->key, secret, sizeof key->key);
    memcpy(key->iv, secret + sizeof key->key, sizeof key->iv);
    return {};
}

Cipher encryptionWith(const FileKey& key) {
    Cipher cipher(EVP_CIPHER_CTX_new());
    if (cipher != nullptr &&
        EVP_EncryptInit_ex(cipher.get(), EVP_aes_256_cbc(), nullptr, key.key, key.iv) != 1)
        cipher.reset();
    return cipher;
}

Cipher decryptionWith(const FileKey& key) {
    Cipher cipher(EVP_CIPHER_CTX_new());
    if (cipher != nullptr &&
        EVP_DecryptInit_ex(cipher.get(), EVP_aes_256_cbc(), nullptr, key.key, key.iv) != 1)
        cipher.reset();
    return cipher;
}
