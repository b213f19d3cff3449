// Keys out of files. One of another kind than is needed is called what it is, with what to do about it.

#pragma once

#include "fault.h"
#include "signing.h"

#include <string>

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
