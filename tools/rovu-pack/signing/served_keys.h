// Secrets in a folder that a web server is to serve.

#pragma once

#include <string>
#include <vector>

/// \return the paths of files with a private key in `folder` and the folders below, sorted. Links to files are followed, since
///         a server does; what cannot be read is passed over, and so is what is too large for a key.
std::vector<std::string> findPrivateKeys(const std::string& folder);

/// \return the same for files that hold a key of the key file at `keyFile`; none if that cannot be read, or is too large.
std::vector<std::string> findKeyCopies(const std::string& folder, const std::string& keyFile);
