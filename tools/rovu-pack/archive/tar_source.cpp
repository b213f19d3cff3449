#include "archive/tar_source.h"

#include "host/files.h"
#include "host/leftovers.h"

#include <cerrno>
#include <cstdio>

namespace {

constexpr size_t kChunk = 262144;

}  // namespace

Fault TarSource::open(const std::string& path, const FileKey& key, WorkProgress* progress) {
    path_ = path;
    progress_ = progress;
    uint64_t size = 0;
    if (Fault fault = openRegularFile(path, &file_, &size)) return fault;
    setvbuf(file_.get(), nullptr, _IONBF, 0);  // the chunks are large enough
    if (key.present) {
        cipher_ = decryptionWith(key);
        if (cipher_ == nullptr) return fileFault(path, ENOMEM);
    }
    read_.resize(kChunk);
    plain_.resize(kChunk + EVP_MAX_BLOCK_LENGTH);
    worker_ = std::make_unique<ChunkWorker>([this](const ChunkWorker::Chunk& chunk) {
        sha256_.add(chunk.data(), chunk.size());
        return Fault();
    });
    return {};
}

Fault TarSource::next(const unsigned char** bytes, size_t* size) {
    for (*size = 0; *size == 0 && !isAtEnd_;) {
        size_t got = 0;
        if (Fault fault = read(&got)) return fault;
        if (cipher_ == nullptr) {
            *bytes = read_.data();
            *size = got;
        } else if (got == 0) {
            decryptLast(bytes, size);
        } else {
            decrypt(got, bytes, size);
        }
    }
    return {};
}

Fault TarSource::finish(uint64_t* size, std::string* sha256) {
    while (!isAtEnd_) {
        const unsigned char* bytes = nullptr;
        size_t got = 0;
        if (Fault fault = next(&bytes, &got)) return fault;
    }
    if (Fault fault = worker_->finish()) return fault;
    std::string digest = sha256_.hex();
    if (digest.empty()) return {ENOMEM, path_ + ": libcrypto refuses to compute its digest"};
    *size = size_;
    *sha256 = std::move(digest);
    return {};
}

Fault TarSource::read(size_t* size) {
    *size = fread(read_.data(), 1, read_.size(), file_.get());
    if (*size == 0 && ferror(file_.get()) != 0) return fileFault(path_, errno);
    isAtEnd_ = *size == 0;
    size_ += *size;
    reportWork(progress_, *size);
    if (Fault fault = worker_->add(read_.data(), *size)) return fault;
    return interruption();
}

// After the first fault nothing more is decrypted, but the rest of the file still hashed.
void TarSource::decrypt(size_t size, const unsigned char** bytes, size_t* plainSize) {
    int got = 0;
    if (cipherFault_) return;
    if (EVP_DecryptUpdate(cipher_.get(), plain_.data(), &got, read_.data(), static_cast<int>(size)) != 1)
        cipherFault_ = {EBADMSG, path_ + ": the key is wrong, or the file is not whole"};
    *bytes = plain_.data();
    *plainSize = cipherFault_ ? 0 : static_cast<size_t>(got);
}

void TarSource::decryptLast(const unsigned char** bytes, size_t* plainSize) {
    int got = 0;
    if (cipherFault_) return;
    if (EVP_DecryptFinal_ex(cipher_.get(), plain_.data(), &got) != 1)
        cipherFault_ = {EBADMSG, path_ + ": the key is wrong, or the file is not whole"};
    *bytes = plain_.data();
    *plainSize = cipherFault_ ? 0 : static_cast<size_t>(got);
}
