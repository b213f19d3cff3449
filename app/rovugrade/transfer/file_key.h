// The key with which the files of an update are encrypted.

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
