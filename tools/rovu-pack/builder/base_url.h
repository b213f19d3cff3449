// Where the files of an update will be served.

#pragma once

#include <string>

/// Cuts slashes off the end of `*url`.
/// \return 0, or EINVAL with a sentence in `*error` for what is no URL.
int normaliseBaseUrl(std::string* url, std::string* error);

/// \return the plain file name with which `url` goes on behind `baseUrl` and a slash; empty if it does not.
std::string fileNameBelow(const std::string& baseUrl, const std::string& url);
