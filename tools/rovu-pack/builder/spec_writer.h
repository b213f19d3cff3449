// The text of a spec, for two readers, a device and a person: one key a line, in the order of the manual.
//
// What a manifest may leave out is computed if absent, and checked if given: a given value is a promise of the manifest's
// author, and a broken one stops the build. The files are served at a folder's URL and a plain name, so that a name also
// fits into a folder.

#pragma once

#include "builder/manifest.h"
#include "builder/tar_plan.h"
#include "host/fault.h"

#include <cstdint>
#include <string>
#include <vector>

/// Settles the URL of the tar, which sets its file's name: empty if a URL that is given is none directly below `baseUrl`.
/// \return a fault if the URL has more bytes than a device takes.
Fault settleUrl(const std::string& baseUrl, TarJob* job, Manifest* manifest);

/// Settles a digest. One that is given must be equal.
Fault settleText(const std::string& key, const std::string& computed, Manifest* manifest);

/// Settles a size or a limit in bytes. One that is given may be larger, and must not be "none".
Fault settleSize(const std::string& key, uint64_t computed, Manifest* manifest);

/// Settles the keys of a script tar, of an update that has none: none of them may be given.
Fault settleNoScriptTar(Manifest* manifest);

/// \return the manifest with values in place of those that only packed files have, so that its spec can be judged.
Manifest withoutFiles(Manifest manifest, const std::vector<TarJob>& jobs);

/// Cuts slashes off the end of `*url`.
/// \return EINVAL for what is no URL.
Fault normaliseBaseUrl(std::string* url);

/// Composes the spec's text, up to and including its last line feed. All that can be computed must be there. The same
/// manifest gives the same text.
std::string composeSpec(const Manifest& manifest);
