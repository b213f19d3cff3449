// Keys out of files. One of another kind than is needed is called what it is, with what to do about it.

#pragma once

#include "fault.h"
#include "signing.h"

#include <string>

/// Reads the private key (PEM) in the file at `path`.
/// \param passSource where its pass phrase is if it is encrypted, as PassPhrase::read() takes it.
/// \return EINVAL for a key whose signatures the device cannot verify.
Fault readSigningKey(const std::string& path, const std::string& passSource, SigningKey* key);

struct PublicKey {
    std::string pem;  // the whole file
    SigningKey key;   // without its private half
};

/// Reads the public key in the file at `path` as the device does: PEM with a SubjectPublicKeyInfo.
/// \return EINVAL for a file with which the device verifies nothing.
Fault readPublicKey(const std::string& path, PublicKey* key);
