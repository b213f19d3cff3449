// Where the files of an update will be served: a folder's URL and a plain name, so that a name also fits
// into a folder.

#pragma once

#include "fault.h"

#include <string>

/// Cuts slashes off the end of `*url`.
/// \return EINVAL for what is no URL.
Fault normaliseBaseUrl(std::string* url);

/// \return the plain file name that follows `baseUrl` and a slash in `url`; empty if none does.
std::string fileNameBelow(const std::string& baseUrl, const std::string& url);
