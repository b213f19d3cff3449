#include "transfer/file_decryption.h"

#include "run/log_module.h"
#include "util/descriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char kKeyFilePath[] = "/app0/secrets/rovu/preshared";

// One read each: a file that does not give all bytes at once is no key file.
int readKey(int fd, int32_t offset, FileKey* fileKey) {
    if (lseek(fd, offset, SEEK_SET) == -1) return EINVAL;
    if (read(fd, fileKey->key, sizeof fileKey->key) != static_cast<ssize_t>(sizeof fileKey->key))
        return EINVAL;
    if (read(fd, fileKey->iv, sizeof fileKey->iv) != static_cast<ssize_t>(sizeof fileKey->iv)) return EINVAL;
    return 0;
}

constexpr size_t kChunk = 16384;
constexpr int kCipherFailure = -1;

// A shared mapping of a whole file; null if it could not be made.
class Mapping {
public:
    Mapping(int fd, size_t size) : length(size) {
        void* start = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (start != MAP_FAILED) mapped = static_cast<uint8_t*>(start);
    }
    ~Mapping() { release(); }
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    uint8_t* start() const { return mapped; }
    size_t size() const { return length; }

    void release() {
        if (mapped != nullptr) munmap(mapped, length);
        mapped = nullptr;
    }

private:
    uint8_t* mapped = nullptr;
    const size_t length;
};

struct CipherFreer {
    void operator()(EVP_CIPHER_CTX* cipher) const { EVP_CIPHER_CTX_free(cipher); }
};
using Cipher = std::unique_ptr<EVP_CIPHER_CTX, CipherFreer>;

// Returns whether the cipher succeeded; `*plainLength` is written only then.
bool decryptMapping(EVP_CIPHER_CTX* cipher, const Mapping& mapping, const uint8_t* key, const uint8_t* iv,
                    size_t* plainLength) {
    if (EVP_DecryptInit_ex(cipher, EVP_aes_256_cbc(), nullptr, key, iv) != 1) return false;
    const uint8_t* input = mapping.start();
    uint8_t* output = mapping.start();
    uint8_t buffer[kChunk];
    for (size_t left = mapping.size(); left > 0;) {
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
    *plainLength = static_cast<size_t>(output + written - mapping.start());
    return true;
}

}  // namespace

int loadFileKey(int32_t offset, FileKey* fileKey) {
    fileKey->present = offset >= 0;
    if (!fileKey->present) return 0;
    const zem::Descriptor file(open(kKeyFilePath, O_RDONLY));
    if (!file.isOpen()) return errno;
    return readKey(file.get(), offset, fileKey);
}

int decryptFile(const char* path, const uint8_t* key, const uint8_t* iv) {
    const zem::Descriptor file(open(path, O_RDWR));
    if (!file.isOpen()) {
        const int error = errno;
        LOG_MSG(LOG_LVL_ERROR, "Failed to open file %s for decryption: %d", path, error);
        return error;
    }
    struct stat info;
    if (fstat(file.get(), &info) != 0) return errno;
    const size_t size = static_cast<size_t>(info.st_size);
    Mapping mapping(file.get(), size);
    if (mapping.start() == nullptr) {
        const int error = errno;
        LOG_MSG(LOG_LVL_ERROR, "Failed to mmap file %s for decryption: %d", path, error);
        return error;
    }
    Cipher cipher(EVP_CIPHER_CTX_new());
    if (cipher == nullptr) return ENOMEM;
    size_t plainLength = 0;
    if (!decryptMapping(cipher.get(), mapping, key, iv, &plainLength)) {
        LOG_MSG(LOG_LVL_ERROR, "SSL decryption failed:");
        ERR_print_errors_fp(stderr);
        return kCipherFailure;
    }

    // The mapping goes before the file is cut: no page of it may lie beyond the end.
    cipher.reset();
    mapping.release();
    if (plainLength != size && ftruncate(file.get(), static_cast<off_t>(plainLength)) != 0) {
        const int error = errno;
        LOG_MSG(LOG_LVL_ERROR, "Failed to truncate decrypted file: %d", error);
        return error;
    }
    return 0;
}
