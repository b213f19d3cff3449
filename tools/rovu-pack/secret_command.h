// The command "secret".

#pragma once

#include <string>

/// Appends a secret to the key file `path`, which is made if there is none, and prints its offset in bytes.
/// Errors are printed to stderr.
///
/// \return the exit status
int runSecret(const std::string& path);
