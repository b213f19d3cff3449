// Typed fields out of a manifest's tables, with complaints that name file, line, entry and key.

#pragma once

#include "lua_value.h"
#include "manifest.h"

/// The manifest itself, or one of its images.
struct ManifestTable {
    const Manifest& manifest;
    size_t entry;  // from 1; kWholeManifest
    const LuaValue& value;
};

/// Takes fields one by one. After the first fault the rest does nothing, so that a list of fields needs one
/// test.
struct FieldTaker {
    const ManifestTable& table;
    std::string* error;  // written with the first fault
    int result = 0;      // EINVAL from the first fault on

    /// A text of at most `limit` bytes.
    void text(const char* key, size_t limit, std::string* value, bool required = true);
    /// A whole number that fits into 32 bits; left as it is if absent and not `required`.
    void number(const char* key, double* value, bool required);
    /// What can also be computed: a text.
    void given(const char* key, size_t limit, std::optional<std::string>* value);
    /// What can also be computed: a size in bytes.
    void given(const char* key, std::optional<uint32_t>* value);
    /// A map of members to local files.
    void files(const char* key, LocalFiles* value);
};

/// \return 0, or EINVAL with a sentence in `*error` about a key that nothing reads.
int refuseUnknownKeys(const ManifestTable& table, const std::vector<std::string>& known, std::string* error);
