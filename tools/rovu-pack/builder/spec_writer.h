// The text of a spec, for two readers, a device and a person: one key a line, in the order of the manual.
//
// What a manifest may leave out is computed if absent, and checked if given: a given value is a promise of the manifest's
// author, and a broken one stops the build. The files are served at a folder's URL and a plain name, so that a name also
// fits into a folder.

#pragma once

#include "builder/manifest.h"
#include "host/fault.h"

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

/// Cuts slashes off the end of `*url`.
/// \return EINVAL for what is no URL.
Fault normaliseBaseUrl(std::string* url);

/// \return the plain file name that follows `baseUrl` and a slash in `url`; empty if none does.
std::string fileNameBelow(const std::string& baseUrl, const std::string& url);

/// Composes the spec's text, up to and including its last line feed. All that can be computed must be there,
/// except what belongs to a script tar if no step is a script. The same manifest gives the same text.
std::string composeSpec(const Manifest& manifest);

/// \return `text` as a Lua string, in quotes, on one line.
std::string luaQuoted(const std::string& text);
