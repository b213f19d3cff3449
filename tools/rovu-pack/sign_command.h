// The command "sign".

#pragma once

#include <string>

struct SignOptions {
    std::string spec;  ///< file, signed or not
    std::string key;   ///< file with the private key, PEM
};

/// Signs a spec where it lies, in place of an old signature. Errors are printed to stderr.
///
/// \return the exit status
int runSign(const SignOptions& options);
