// MD5 and SHA-256 as the lower-case hex digests that a spec holds. Files are read in pieces: an image need
// not fit into memory.

#pragma once

#include "host/fault.h"
#include "host/handles.h"
#include "host/progress_bar.h"

#include <cstdint>
#include <openssl/evp.h>
#include <string>

using DigestContext = Handle<EVP_MD_CTX, EVP_MD_CTX_free>;

/// A digest of bytes that come in pieces.
class Digest {
public:
    /// \param kind EVP_md5() or EVP_sha256().
    explicit Digest(const EVP_MD* kind);

    void add(const void* bytes, size_t size);

    /// Ends the digest: nothing may be added afterwards.
    /// \return the hex digest; empty if libcrypto refused something, which it does only without memory.
    std::string hex();

private:
    DigestContext context_;
    bool good_;
};

/// \return two lower-case hex digits for each byte.
std::string hexOf(const std::string& bytes);

/// \return the hex digest of bytes in memory; empty if libcrypto fails.
std::string hexMd5(const std::string& bytes);
std::string hexSha256(const std::string& bytes);
