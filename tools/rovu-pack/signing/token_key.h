// The URI of a key on a token (RFC 7512), such as "pkcs11:token=fleet;object=update?pin-source=/run/pin".
//
// The PIN is taken out of it: the engine would print it with its messages, would take a line feed for a part of it, and
// would forget it before the signature.
//
// Private keys that never leave a token (a smart card, an HSM): libcrypto's engine "pkcs11" signs with them.
//
// The engine is a package of its own, and is looked for only when a key of a token is named.

#pragma once

#include "host/fault.h"
#include "signing/pass_phrase.h"
#include "signing/signing.h"

#include <memory>
#include <string>

struct TokenUri {
    std::string object;     // the URI without the PIN
    std::string pin;        // of "pin-value"; empty: not there
    std::string pinSource;  // path of "pin-source"; empty: not there
};

/// Whether the name of a key is a URI of an object on a token, and not a path.
bool isTokenUri(const std::string& name);

/// \param uri one for which isTokenUri() holds.
TokenUri splitTokenUri(const std::string& uri);

/// Finds the private key on its token.
/// \param uri as splitTokenUri() takes it.
/// \param pin what the command line says of the PIN; else it is in the URI, or is asked for. The token may ask for it as
///            late as at the signature: it lives as long as the key.
Fault readTokenKey(const std::string& uri, const std::shared_ptr<PassPhrase>& pin, SigningKey* key);
