#include "archive/output_file.h"

#include "archive/chunk_worker.h"
#include "host/digests.h"
#include "host/files.h"
#include "host/handles.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

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

class OutputFile::Pipe {
public:
    Fault open(const std::string& path, const FileKey& key);
    Fault add(const char* bytes, size_t size) { return worker_->add(bytes, size); }
    Fault finish(uint64_t* size, std::string* sha256);

private:
    // The thread's part.
    Fault take(const ChunkWorker::Chunk& chunk);
    Fault takeLast();
    Fault write(const unsigned char* bytes, size_t size);

    std::string path_;
    File file_;
    Cipher cipher_;  // null: nothing is encrypted
    Digest sha256_{EVP_sha256()};
    uint64_t size_ = 0;
    ChunkWorker::Chunk encrypted_;
    std::unique_ptr<ChunkWorker> worker_;  // last: it uses the others to its end
};

Fault OutputFile::Pipe::open(const std::string& path, const FileKey& key) {
    path_ = path;
    file_.reset(fopen(path.c_str(), "wbe"));
    if (file_ == nullptr) return fileFault(path, errno);
    setvbuf(file_.get(), nullptr, _IONBF, 0);  // the chunks are large enough
    if (key.present) {
        cipher_ = encryptionWith(key);
        if (cipher_ == nullptr) return fileFault(path, ENOMEM);
    }
    worker_ = std::make_unique<ChunkWorker>([this](const ChunkWorker::Chunk& chunk) { return take(chunk); });
    return {};
}

Fault OutputFile::Pipe::finish(uint64_t* size, std::string* sha256) {
    if (Fault fault = worker_->finish()) return fault;
    if (Fault fault = takeLast()) return fault;
    if (fclose(file_.release()) != 0) return fileFault(path_, errno);
    std::string digest = sha256_.hex();
    if (digest.empty()) return fileFault(path_, ENOMEM);
    *size = size_;
    *sha256 = std::move(digest);
    return {};
}

Fault OutputFile::Pipe::take(const ChunkWorker::Chunk& chunk) {
    if (cipher_ == nullptr) return write(chunk.data(), chunk.size());
    encrypted_.resize(chunk.size() + EVP_MAX_BLOCK_LENGTH);
    int size = 0;
    if (EVP_EncryptUpdate(cipher_.get(), encrypted_.data(), &size, chunk.data(),
                          static_cast<int>(chunk.size())) != 1)
        return fileFault(path_, ENOMEM);
    return write(encrypted_.data(), static_cast<size_t>(size));
}

Fault OutputFile::Pipe::takeLast() {
    if (cipher_ == nullptr) return {};
    unsigned char padding[EVP_MAX_BLOCK_LENGTH];
    int size = 0;
    if (EVP_EncryptFinal_ex(cipher_.get(), padding, &size) != 1) return fileFault(path_, ENOMEM);
    return write(padding, static_cast<size_t>(size));
}

Fault OutputFile::Pipe::write(const unsigned char* bytes, size_t size) {
    sha256_.add(bytes, size);
    size_ += size;
    return fwrite(bytes, 1, size, file_.get()) == size ? Fault() : fileFault(path_, errno);
}

OutputFile::OutputFile() : pipe_(std::make_unique<Pipe>()) {}

OutputFile::~OutputFile() = default;

Fault OutputFile::open(const std::string& path, const FileKey& key) {
    return pipe_->open(path, key);
}

Fault OutputFile::add(const char* bytes, size_t size) {
    return pipe_->add(bytes, size);
}

Fault OutputFile::finish(uint64_t* size, std::string* sha256) {
    return pipe_->finish(size, sha256);
}
