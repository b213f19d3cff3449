// A signature that comes from elsewhere, as from a signing service.

#pragma once

#include "fault.h"
#include "signing.h"

#include <string>

/// Reads the signature in the file at `path`: its bytes, or their Base64 with or without line feeds.
/// \param raw receives kSignatureSize bytes.
/// \return EINVAL for anything else.
Fault readSignature(const std::string& path, std::string* raw);

/// Whether the signature is that of `text` under the public key; says more than a device does if it is not.
/// \return EBADMSG with what was signed instead, as far as the signature shows it.
Fault verifySignature(const std::string& text, const std::string& raw, const SigningKey& key);
