// The manifest: the spec's own table, with local files instead of the values that can be computed.
//
// Keys and entries are the spec's. `files`, at the top or in an image, maps a member's name to a local file where that is
// not the file of that name beside the manifest. What is wrong with the table as a spec's, the check says of it and of the
// spec that it becomes; only what a manifest is held to besides stands here.

#pragma once

#include "host/fault.h"
#include "spec_view/finding.h"
#include "spec_view/spec_view.h"

#include <string>
#include <vector>

struct Manifest {
    SpecFile source;     // its path as it was named on the command line, lines and table
    std::string folder;  // in which it lies

    SpecView view() const { return viewOf(source); }

    /// \param key as of a finding: "hardware", or "2.url" of the second entry, which must be a table.
    /// \return the value there; null if there is none.
    const LuaValue* find(const std::string& key) const;

    /// Puts `computed` there, unless there is a value. \return the value.
    const LuaValue& settle(const std::string& key, const LuaValue& computed);

    /// \param key as of a finding; empty: the manifest as a whole.
    /// \return the fault (EINVAL) that names file, line, entry and key.
    Fault located(const std::string& key, const std::string& text) const;

    /// \param prefix of the keys of the image in whose tar the member is; empty: the script tar.
    /// \return the path of its local file.
    std::string localFileOf(const std::string& prefix, const std::string& member) const;
};

LuaValue textValue(const std::string& text);
LuaValue numberValue(double number);

/// Reads the manifest at `path`. Stricter than the device, which takes a number for a string: 3.10 would be 3.1.
/// \param variables "NAME=VALUE" for each field of the table `vars` that the manifest reads.
/// \return EINVAL for a fault in its keys or the kinds of their values, or in the variables: one that is missing, and one
///         that is not read.
Fault readManifest(const std::string& path, const std::vector<std::string>& variables, Manifest* manifest);

/// \return a fault of the first finding that makes a manifest unfit, whatever its severity for a spec, and also with
///         --force; no fault if there is none.
Fault refuseFound(const Manifest& manifest, const Findings& findings);

/// \return a fault of a local file that is given for no member.
Fault refuseUnusedFiles(const Manifest& manifest);
