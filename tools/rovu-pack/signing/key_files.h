// Reads keys from files. For a key of the wrong kind, the fault names the kind and says what to do.

#pragma once

#include "host/fault.h"
#include "signing/signing.h"

#include <cerrno>
#include <openssl/err.h>
#include <string>

/// \return "WHAT: libcrypto's last reason", with `code`. The reasons are forgotten.
inline Fault cryptoFault(const std::string& what, int code) {
    char reason[256];
    ERR_error_string_n(ERR_peek_last_error(), reason, sizeof reason);
    ERR_clear_error();
    return {code, what + ": " + reason};
}

enum class KeyUse { ePrivate, ePublic };

/// \return what the file with these bytes is, with an article; empty if it is no key file.
std::string keyKindInWords(const std::string& bytes);

/// Whether a file with these bytes is a private key.
bool isPrivateKey(const std::string& bytes);

/// What a file is that lacks the required key, and what to do about it, with a command if possible.
/// \param path of the file, for the command.
/// \return empty if it is no key file, or seems to be one of the right kind.
std::string adviceOnKeyFile(const std::string& bytes, const std::string& path, KeyUse use);

/// Reads a private key.
/// \param name the path of its file (PEM), or its URI on a token ("pkcs11:...").
/// \param passSource where the pass phrase of an encrypted file or the PIN of the token is, as PassPhrase::read() takes
///        it.
/// \return EINVAL for a key whose signatures the device cannot verify.
Fault readSigningKey(const std::string& name, const std::string& passSource, SigningKey* key);

/// Whether the file of a private key, named as above, can be read by its group or by others. False for a token.
bool isReadableByOthers(const std::string& name);

struct PublicKey {
    std::string pem;  // the whole file
    SigningKey key;   // without its private half
};

/// Reads the public key in the file at `path` as the device does: PEM with a SubjectPublicKeyInfo.
/// \return EINVAL for a file with which the device verifies nothing.
Fault readPublicKey(const std::string& path, PublicKey* key);
