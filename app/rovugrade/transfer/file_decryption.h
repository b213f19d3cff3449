// The key with which the files of an update are encrypted, and the decryption of a fetched file in place.
//
// Plain text and ciphertext share one file, so the order of reads and writes is what makes this safe: each chunk is
// copied out before the cipher sees it, and the cipher withholds the last block of every update, so what it writes
// lies in ciphertext that has been read already.

#pragma once

#include <cstdint>

/// An AES-256 key and its CBC initialisation vector; both are set only if `present`.
struct FileKey {
    bool present;  // files are to be decrypted
    uint8_t key[32];
    uint8_t iv[16];
};

/// Reads the key and the IV after it, 48 bytes in all, at byte `offset` of the device's key file. With a
/// negative offset there is no key, and the file need not exist.
/// \return 0; EINVAL: the file ends too early; or the errno value of opening it.
[[nodiscard]] int loadFileKey(int32_t offset, FileKey* fileKey);

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
