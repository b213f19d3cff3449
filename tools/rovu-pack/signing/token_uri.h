// The URI of a key on a token (RFC 7512), such as "pkcs11:token=fleet;object=update?pin-source=/run/pin".
//
// The PIN is taken out of it: the engine would print it with its messages, would take a line feed for a part of it, and
// would forget it before the signature.

#pragma once

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
