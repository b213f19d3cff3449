// What a manifest may leave out: it is computed if absent, and checked if given.

#pragma once

#include "manifest.h"

#include <cstdint>
#include <optional>
#include <string>

/// A key of the manifest, and where a complaint about it goes.
struct KeyPlace {
    const Manifest& manifest;
    size_t entry;
    const char* key;
    std::string* error;
};

/// Settles the URL of a file. One that is given must lie directly below `baseUrl`, and sets the file's name.
/// \return 0, or EINVAL with a sentence in the place's error; so for all of these.
int settleUrl(const KeyPlace& place, const std::string& baseUrl, std::string* fileName,
              std::optional<std::string>* url);

/// Settles a digest. One that is given must be equal.
int settleText(const KeyPlace& place, const std::string& computed, std::optional<std::string>* value);

/// Settles a size or a limit. One that is given may be larger, and must not be "none".
int settleSize(const KeyPlace& place, uint64_t computed, std::optional<uint32_t>* value);

/// Makes sure that nothing was given for a script tar, of an update that has none.
int refuseScriptTar(const Manifest& manifest, std::string* error);
