// From a manifest's file to its record: evaluated, taken field by field, and checked. Stricter than the device, which takes
// a number for a string: 3.10 would be 3.1.

#pragma once

#include "builder/manifest.h"
#include "spec_view/lua_value.h"

#include <string>
#include <vector>

/// Takes fields one by one. After the first complaint the rest does nothing, so that a list of fields needs
/// one test.
class FieldTaker {
public:
    /// \param table must outlive the object.
    explicit FieldTaker(const LuaValue& table) : table_(table) {}

    /// A string of at most `limit` bytes.
    void text(const char* key, size_t limit, std::string* value, bool required = true);
    /// A whole number that fits into 32 bits; `*value` is unchanged if it is absent and not `required`.
    void number(const char* key, double* value, bool required);
    /// What can also be computed: a string.
    void given(const char* key, size_t limit, std::optional<std::string>* value);
    /// What can also be computed: a size in bytes.
    void given(const char* key, std::optional<uint32_t>* value);
    /// A map of members to local files.
    void files(const char* key, LocalFiles* value);

    const Complaint& complaint() const { return complaint_; }

private:
    const LuaValue& table_;
    Complaint complaint_;
};

/// \return a complaint about a key that is not among `known`.
Complaint refuseUnknownKeys(const LuaValue& table, const std::vector<std::string>& known);

/// Reads and checks the manifest at `path`.
/// \param variables "NAME=VALUE" for each field of the table `vars` that the manifest reads.
/// \return EINVAL for a fault in it, or in the variables: one that is missing, and one that is not read.
Fault readManifest(const std::string& path, const std::vector<std::string>& variables, Manifest* manifest);
