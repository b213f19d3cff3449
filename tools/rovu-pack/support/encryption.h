// A spec's files under its file key: AES-256-CBC with PKCS#7 padding and nothing around it.

#pragma once

#include "file_key.h"
#include "work_progress.h"

#include <cstdint>
#include <string>

/// Bytes of a secret in a key file: 32 of key, then 16 of IV.
constexpr size_t kSecretSize = 48;

/// Reads the secret at byte `offset`, 0 or more, of the key file at `path`, which has the device's layout.
/// \return 0, or a positive errno value with a sentence in `*error`: EINVAL if the file ends too early.
int readSecret(const std::string& path, int64_t offset, FileKey* key, std::string* error);

/// Makes or truncates the file at `target`, and writes the file at `source` to it encrypted.
/// \return 0, or a positive errno value with a sentence in `*error`.
int encryptFileTo(const std::string& source, const std::string& target, const FileKey& key,
                  WorkProgress* progress, std::string* error);

/// The reverse. A wrong key shows in the padding only, and not always.
/// \return 0, or a positive errno value with a sentence in `*error`: EBADMSG for bytes that the key does not
///         fit.
int decryptFileTo(const std::string& source, const std::string& target, const FileKey& key,
                  WorkProgress* progress, std::string* error);
