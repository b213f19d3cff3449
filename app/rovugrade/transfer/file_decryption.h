// Decryption of a fetched file in place.
//
// Plain text and ciphertext share one file, so the order of reads and writes is what makes this safe: each chunk is
// copied out before the cipher sees it, and the cipher withholds the last block of every update, so what it writes
// lies in ciphertext that has been read already.

#pragma once

#include <cstdint>

/// Decrypts the file at `path`, AES-256 in CBC mode with PKCS#7 padding (RFC 5652, section 6.3) and nothing
/// around it, in place: no second copy is made, and the file is cut to the length of its plain text.
///
/// A wrong key shows in the padding only, and not always. After a failure in the cipher the file keeps its length, and
/// what the cipher has decrypted so far stands in the place of its ciphertext. After any earlier failure the file is
/// unchanged.
/// \param key 32 bytes.
/// \param iv 16 bytes.
/// \return 0; a positive errno value, EINVAL for an empty file; ENOMEM; or -1 after a failure in the cipher.
[[nodiscard]] int decryptFile(const char* path, const uint8_t* key, const uint8_t* iv);
