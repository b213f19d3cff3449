// Files with keys. One of another kind than is needed is called what it is, with what to do about it.

#pragma once

#include "fault.h"
#include "signing.h"

#include <string>

/// Reads the private key (PEM) in the file at `path`.
/// \param passSource where its pass phrase is if it is encrypted, as PassPhrase::read() takes it.
/// \return EINVAL for a key whose signatures the device cannot verify.
Fault readSigningKey(const std::string& path, const std::string& passSource, SigningKey* key);

/// Reads the public key (PEM, SubjectPublicKeyInfo) in the file at `path`.
Fault readPublicKey(const std::string& path, SigningKey* key);
