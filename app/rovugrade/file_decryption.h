// Decryption of a fetched file where it lies.

#pragma once

#include <cstdint>

/// Decrypts the file at `path`, AES-256 in CBC mode with PKCS#7 padding (RFC 5652, section 6.3) and nothing
/// around it, in place: no second copy is made, and the file is cut to the length of its plain text.
///
/// A wrong key shows in the padding only, and not always. After a failure the file is garbled.
/// \param key 32 bytes.
/// \param iv 16 bytes.
/// \return 0; a positive errno value, EINVAL for an empty file; ENOMEM; or -1 after a failure in the cipher.
int decryptFile(const char* path, const uint8_t* key, const uint8_t* iv);
