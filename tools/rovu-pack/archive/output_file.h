// A spec's files under its file key: AES-256-CBC with PKCS#7 padding and nothing around it.
//
// A file whose bytes are encrypted, hashed and written by a second thread while the caller makes the next ones.

#pragma once

#include "host/fault.h"
#include "host/handles.h"
#include "transfer/file_decryption.h"

#include <cstdint>
#include <memory>
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

/// Memory is constant: a caller that is faster than the thread waits for it.
class OutputFile {
public:
    OutputFile();
    /// Ends the thread. A file that was not finished stays as far as it came.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Makes or truncates the file at `path`, encrypted if `key` is present.
    [[nodiscard]] Fault open(const std::string& path, const FileKey& key);

    /// Takes the next bytes. A fault may be that of earlier ones.
    [[nodiscard]] Fault add(const char* bytes, size_t size);

    /// Writes what is left, and waits until all of it is in the file.
    /// \param size receives the bytes of the file, `sha256` their hex digest; both on success only.
    [[nodiscard]] Fault finish(uint64_t* size, std::string* sha256);

private:
    class Pipe;
    std::unique_ptr<Pipe> pipe_;
};
