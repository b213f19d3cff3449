// What libcrypto says of its own failures.

#pragma once

#include "fault.h"

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
