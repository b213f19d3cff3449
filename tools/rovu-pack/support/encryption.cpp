#include "encryption.h"

#include "files.h"
#include "interruption.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr size_t kChunk = 262144;

struct Paths {
    const std::string& source;
    const std::string& target;
};

Fault put(FILE* out, const std::vector<unsigned char>& bytes, int size, const Paths& paths) {
    const size_t count = static_cast<size_t>(size);
    return fwrite(bytes.data(), 1, count, out) == count ? Fault() : fileFault(paths.target, errno);
}

Fault cipherFault(const Paths& paths) {
    return {EBADMSG, paths.source + ": the key is wrong, or the file is not whole"};
}

Fault decrypt(EVP_CIPHER_CTX* cipher, FILE* in, FILE* out, const Paths& paths, WorkProgress* progress) {
    std::vector<unsigned char> encrypted(kChunk);
    std::vector<unsigned char> plain(kChunk + EVP_MAX_BLOCK_LENGTH);
    int size = 0;
    while (const size_t got = fread(encrypted.data(), 1, encrypted.size(), in)) {
        if (EVP_DecryptUpdate(cipher, plain.data(), &size, encrypted.data(), static_cast<int>(got)) != 1)
            return cipherFault(paths);
        if (Fault fault = put(out, plain, size, paths)) return fault;
        reportWork(progress, got);
        if (Fault fault = interruption()) return fault;
    }
    if (ferror(in) != 0) return fileFault(paths.source, errno);
    if (EVP_DecryptFinal_ex(cipher, plain.data(), &size) != 1) return cipherFault(paths);
    return put(out, plain, size, paths);
}

}  // namespace

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

Fault decryptFileTo(const std::string& source, const std::string& target, const FileKey& key,
                    WorkProgress* progress) {
    File in;
    uint64_t size = 0;
    if (Fault fault = openRegularFile(source, &in, &size)) return fault;
    File out(fopen(target.c_str(), "wbe"));
    if (out == nullptr) return fileFault(target, errno);
    const Cipher cipher(EVP_CIPHER_CTX_new());
    if (cipher == nullptr ||
        EVP_DecryptInit_ex(cipher.get(), EVP_aes_256_cbc(), nullptr, key.key, key.iv) != 1)
        return fileFault(source, ENOMEM);
    if (Fault fault = decrypt(cipher.get(), in.get(), out.get(), {source, target}, progress)) return fault;
    return fclose(out.release()) == 0 ? Fault() : fileFault(target, errno);
}
