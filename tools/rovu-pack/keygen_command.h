// The command "keygen".

#pragma once

#include <string>

/// Makes a key pair in `folder`, which is made if there is none; overwrites nothing. Errors are printed to
/// stderr.
///
/// \return the exit status
int runKeygen(const std::string& folder);
