// Digests with libcrypto, in pieces: an image need not fit into memory.

#include "digests.h"

#include "files.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

constexpr size_t kChunk = 262144;

std::string hexOf(const EVP_MD* kind, const std::string& bytes) {
    Digest digest(kind);
    digest.add(bytes.data(), bytes.size());
    return digest.hex();
}

}  // namespace

Digest::Digest(const EVP_MD* kind) : context(EVP_MD_CTX_new()) {
    good = context != nullptr && EVP_DigestInit_ex(context, kind, nullptr) == 1;
}

Digest::~Digest() {
    EVP_MD_CTX_free(context);
}

void Digest::add(const void* bytes, size_t size) {
    good = good && EVP_DigestUpdate(context, bytes, size) == 1;
}

std::string Digest::hex() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!good || EVP_DigestFinal_ex(context, digest, &length) != 1) return "";
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        text += kDigits[digest[i] >> 4];
        text += kDigits[digest[i] & 0xF];
    }
    return text;
}

std::string sha256Digits(const std::string& bytes) {
    return hexOf(EVP_sha256(), bytes);
}

int digestFile(const std::string& path, WorkProgress* progress, FileDigests* digests, std::string* error) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "rbe"), fclose);
    if (file == nullptr) return fileError(path, errno, error);
    Digest md5(EVP_md5());
    Digest sha256(EVP_sha256());
    uint64_t size = 0;
    std::vector<char> chunk(kChunk);
    while (const size_t got = fread(chunk.data(), 1, chunk.size(), file.get())) {
        md5.add(chunk.data(), got);
        sha256.add(chunk.data(), got);
        size += got;
        reportWork(progress, got);
    }
    if (ferror(file.get()) != 0) return fileError(path, errno, error);
    FileDigests result = {size, md5.hex(), sha256.hex()};
    if (result.md5.empty() || result.sha256.empty()) {
        *error = path + ": libcrypto refuses to compute its digests";
        return ENOMEM;
    }
    *digests = std::move(result);
    return 0;
}
