// Keys and signatures of specs.

#pragma once

#include <memory>
#include <openssl/evp.h>
#include <string>

using SigningKey = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)>;

/// Makes an RSA key pair of 2048 bits.
/// \param privatePem PKCS#8, not encrypted. \param publicPem SubjectPublicKeyInfo, as the device wants it.
/// \return 0, or EIO with a sentence in `*error`.
int makeKeyPair(std::string* privatePem, std::string* publicPem, std::string* error);

/// Reads the private key (PEM) in the file at `path`; libcrypto asks for a pass phrase if there is one.
/// \return 0, or a positive errno value with a sentence in `*error`: EINVAL for what the device cannot
/// verify.
int readSigningKey(const std::string& path, SigningKey* key, std::string* error);

/// \return the public half, as the device's key file holds it; empty if libcrypto fails.
std::string publicPemOf(EVP_PKEY* key);

/// Signs `text`, in front of whose last line feed all of its comments must end.
/// \return 0, with text, marker and signature in `*spec`; or EIO with a sentence in `*error`.
int signText(const std::string& text, EVP_PKEY* key, std::string* spec, std::string* error);

/// Cuts an old signature off, and gives the text a last line feed, without which a comment on its last line
/// would swallow what the device puts behind it. \return 0, or EINVAL with the end of a sentence in `*error`:
/// what stands behind the last two hyphens may be a
///         signature or a comment.
int unsignedTextOf(const std::string& spec, std::string* text, std::string* error);
