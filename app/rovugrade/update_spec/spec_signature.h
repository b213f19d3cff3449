// The signature that trails a spec.
//
// A spec's file is a Lua text, two hyphens, and the text's signature: RSASSA-PKCS1-v1_5 (RFC 8017) with SHA-256
// under an RSA key of 2048 bits, in Base64 (RFC 4648) on one line. Both are read where they lie in the spec's buffer.

#pragma once

#include <cstddef>

/// Finds the two hyphens between text and signature. The last hyphen of the file decides alone, for Base64
/// has none: a file whose last hyphen has no hyphen before it has no signature.
/// \return a pointer to the first of the two; null if there is none.
[[nodiscard]] const char* findSignatureMarker(const char* file, size_t size);

/// Verifies the signature of a text with the public key (PEM, SubjectPublicKeyInfo) in the file at `keyFile`.
/// Logs only a key file that cannot be opened.
/// \return 0: the signature is good; the errno value of opening the key file; ENOMEM: no key in it, or out of
///         memory; EILSEQ: not the Base64 encoding of 256 bytes; EBADMSG: another key or text.
[[nodiscard]] int verifySpecSignature(const char* keyFile, const char* text, size_t textLength,
                                      const char* signatureText, size_t signatureTextLength);
