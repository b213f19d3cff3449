// MD5 and SHA-256, as the lower-case hexadecimal digits that a spec holds.

#pragma once

#include "work_progress.h"

#include <cstdint>
#include <openssl/evp.h>
#include <string>

/// A digest of bytes that come in pieces.
class Digest {
public:
    /// \param kind EVP_md5() or EVP_sha256().
    explicit Digest(const EVP_MD* kind);
    ~Digest();
    Digest(const Digest&) = delete;
    Digest& operator=(const Digest&) = delete;

    void add(const void* bytes, size_t size);

    /// The end: nothing may be added behind it. Empty if libcrypto refused something, which it does only
    /// without memory.
    std::string hex();

private:
    EVP_MD_CTX* context;
    bool good;
};

/// The digest of bytes in memory; empty if libcrypto fails.
std::string sha256Digits(const std::string& bytes);

/// What a spec says about a file.
struct FileDigests {
    uint64_t size;  // bytes
    std::string md5;
    std::string sha256;
};

/// Reads the file at `path` once for all of it. `*digests` is written on success only.
/// \return 0, or a positive errno value with a sentence in `*error`.
int digestFile(const std::string& path, WorkProgress* progress, FileDigests* digests, std::string* error);
