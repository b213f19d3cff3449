// Private keys that never leave a token (a smart card, an HSM): libcrypto's engine "pkcs11" signs with them.
//
// The engine is a package of its own, and is looked for only when a key of a token is named.

#pragma once

#include "fault.h"
#include "pass_phrase.h"
#include "signing.h"

#include <memory>
#include <string>

/// Finds the private key on its token.
/// \param uri as splitTokenUri() takes it.
/// \param pin what the command line says of the PIN; else it is in the URI, or is asked for. The token may ask for it as
///            late as at the signature: it lives as long as the key.
Fault readTokenKey(const std::string& uri, const std::shared_ptr<PassPhrase>& pin, SigningKey* key);
