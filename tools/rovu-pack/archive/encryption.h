// A spec's files under its file key: AES-256-CBC with PKCS#7 padding and nothing around it.

#pragma once

#include "fault.h"
#include "file_key.h"
#include "handles.h"

#include <cstdint>
#include <openssl/evp.h>
#include <string>

using Cipher = Handle<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;

/// Bytes of a secret in a key file: 32 of key, then 16 of IV.
constexpr size_t kSecretSize = 48;

/// Reads the secret at byte `offset`, 0 or more, of the key file at `path`, which has the device's layout.
/// \return EINVAL if the file ends too early.
Fault readSecret(const std::string& path, int64_t offset, FileKey* key);

/// \return a cipher that encrypts; null without memory.
Cipher encryptionWith(const FileKey& key);

/// \return a cipher that decrypts; null without memory.
Cipher decryptionWith(const FileKey& key);
