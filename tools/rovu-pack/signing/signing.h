// Keys and signatures of specs: RSASSA-PKCS1-v1_5 with SHA-256 under 2048 bits, in Base64 on one line.
//
// A signature that comes from elsewhere, as from a signing service.

#pragma once

#include "host/fault.h"
#include "host/handles.h"

#include <memory>
#include <openssl/evp.h>
#include <string>

constexpr int kKeyBits = 2048;              // the only ones that the device verifies
constexpr size_t kSignatureSize = 256;      // bytes
constexpr size_t kSignatureTextSize = 344;  // characters of its Base64

/// A key pair, or half of one, with whatever its use takes.
using SigningKey = std::shared_ptr<EVP_PKEY>;
using KeyContext = Handle<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;

/// Makes an RSA key pair of 2048 bits.
/// \param privatePem receives PKCS#8, not encrypted.
/// \param publicPem receives SubjectPublicKeyInfo, as the device reads it.
Fault makeKeyPair(std::string* privatePem, std::string* publicPem);

/// \return the public half, as the device's key file holds it; empty if libcrypto fails.
std::string publicPemOf(const SigningKey& key);

/// \return the hex SHA-256 digest of the public half's DER encoding; empty if libcrypto fails.
std::string fingerprintOf(const SigningKey& key);

/// Signs `text`. All of its comments must end before its last line feed.
/// \param spec receives text, marker and signature.
Fault signText(const std::string& text, const SigningKey& key, std::string* spec);

/// \return the spec that a text and its signature make; with an empty one, the marker stands at its end.
/// \param raw kSignatureSize bytes, or none.
std::string specOf(const std::string& text, const std::string& raw);

/// Cuts an old signature, or a marker without one, off, and gives the text a last line feed, without which a comment on its last line
/// would swallow what the device appends.
/// \return EINVAL if what follows the last two hyphens may be a signature or a comment.
Fault unsignedTextOf(const std::string& spec, std::string* text);

/// Reads the signature in the file at `path`: its bytes, or their Base64 with or without line feeds.
/// \param raw receives kSignatureSize bytes.
/// \return EINVAL for anything else.
Fault readSignature(const std::string& path, std::string* raw);

/// Whether the public key verifies the signature of `text`; a fault says more than a device does.
/// \return EBADMSG with what was signed instead, as far as the signature shows it.
Fault verifySignature(const std::string& text, const std::string& raw, const SigningKey& key);
