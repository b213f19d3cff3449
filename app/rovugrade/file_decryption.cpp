// Plain text and ciphertext share one file, so the order of reads and writes is what makes this safe: each
// chunk is copied out before the cipher sees it, and the cipher holds back the last block of every update,
// so what it writes lies in ciphertext that has been read already.

#include "file_decryption.h"

#include "log_module.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t kChunk = 16384;
constexpr int kCipherFailure = -1;

// Returns whether the cipher was content; `*plainLength` is written then only.
bool decryptMapping(EVP_CIPHER_CTX* cipher, uint8_t* mapping, size_t size, const uint8_t* key,
                    const uint8_t* iv, size_t* plainLength) {
    if (EVP_DecryptInit_ex(cipher, EVP_aes_256_cbc(), nullptr, key, iv) != 1) return false;
    const uint8_t* input = mapping;
    uint8_t* output = mapping;
    uint8_t buffer[kChunk];
    for (size_t left = size; left > 0;) {
        const size_t chunk = std::min(left, kChunk);
        int written = 0;
        memcpy(buffer, input, chunk);
        if (EVP_DecryptUpdate(cipher, output, &written, buffer, static_cast<int>(chunk)) != 1) return false;
        input += chunk;
        output += written;
        left -= chunk;
    }
    int written = 0;
    if (EVP_DecryptFinal_ex(cipher, output, &written) != 1) return false;
    *plainLength = static_cast<size_t>(output + written - mapping);
    return true;
}

// Returns 0, ENOMEM or kCipherFailure. The mapping stays the caller's.
int decryptWithCipher(uint8_t* mapping, size_t size, const uint8_t* key, const uint8_t* iv,
                      size_t* plainLength) {
    EVP_CIPHER_CTX* cipher = EVP_CIPHER_CTX_new();
    if (cipher == nullptr) return ENOMEM;
    const bool good = decryptMapping(cipher, mapping, size, key, iv, plainLength);
    if (!good) {
        LOG_MSG(LOG_LVL_ERROR, "SSL decryption failed:");
        ERR_print_errors_fp(stderr);
    }
    EVP_CIPHER_CTX_free(cipher);
    return good ? 0 : kCipherFailure;
}

// The mapping is gone before the file is cut: a page of it that lies beyond the end must not exist.
int decryptDescriptor(int fd, const char* path, const uint8_t* key, const uint8_t* iv) {
    struct stat info;
    if (fstat(fd, &info) != 0) return errno;
    const size_t size = static_cast<size_t>(info.st_size);
    void* mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (mapping == MAP_FAILED) {
        const int error = errno;
        LOG_MSG(LOG_LVL_ERROR, "Failed to mmap file %s for decryption: %d", path, error);
        return error;
    }
    size_t plainLength = 0;
    const int rc = decryptWithCipher(static_cast<uint8_t*>(mapping), size, key, iv, &plainLength);
    munmap(mapping, size);
    if (rc != 0) return rc;
    if (plainLength != size && ftruncate(fd, static_cast<off_t>(plainLength)) != 0) {
        const int error = errno;
        LOG_MSG(LOG_LVL_ERROR, "Failed to truncate decrypted file: %d", error);
        return error;
    }
    return 0;
}

}  // namespace

int decryptFile(const char* path, const uint8_t* key, const uint8_t* iv) {
    const int fd = open(path, O_RDWR);
    if (fd < 0) {
        const int error = errno;
        LOG_MSG(LOG_LVL_ERROR, "Failed to open file %s for decryption: %d", path, error);
        return error;
    }
    const int rc = decryptDescriptor(fd, path, key, iv);
    close(fd);
    return rc;
}
