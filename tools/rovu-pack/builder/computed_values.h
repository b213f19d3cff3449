// What a manifest may leave out: it is computed if absent, and checked if given. Given values are promises
// of the manifest's author: a broken one stops the build.

#pragma once

#include "manifest.h"

#include <cstdint>
#include <optional>
#include <string>

/// The most bytes of a file that a spec can describe.
constexpr uint64_t kMaxFileSize = INT32_MAX;

/// Settles the URL of a file. One that is given must lie directly below `baseUrl`, and sets the file's name.
/// One that is computed must not have more than `limit` bytes.
/// \param key of the manifest, for the complaint; so for all of these.
Complaint settleUrl(const char* key, const std::string& baseUrl, size_t limit, std::string* fileName,
                    std::optional<std::string>* url);

/// Settles a digest. One that is given must be equal.
Complaint settleText(const char* key, const std::string& computed, std::optional<std::string>* value);

/// Settles a size or a limit in bytes. One that is given may be larger, and must not be "none".
Complaint settleSize(const char* key, uint64_t computed, std::optional<uint32_t>* value);

/// Makes sure that nothing was given for a script tar, of an update that has none.
Complaint refuseScriptTar(const Manifest& manifest);
