// The manifest: the spec's own table, with local files instead of the values that can be computed.
//
// Keys and entries are the spec's. `files`, at the top or in an image, maps a member's name to a local file where that is
// not the file of that name beside the manifest. Faults that can be told from the manifest alone are found here, each where
// its author can find it. The device's own reader decides, but does not know lines.

#pragma once

#include "host/fault.h"
#include "spec_view/table_lines.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

using LocalFiles = std::map<std::string, std::string>;  // local file by member

struct ManifestDep {
    std::string kind;  // with its '!'
    std::string low;
    std::string high;
};

/// An image. What is optional here is computed, or checked if it is given.
struct ManifestImage {
    std::string type;
    std::string update;
    std::string version;
    std::string image;
    std::string preinst;   // empty: none
    std::string postinst;  // empty: none
    std::vector<ManifestDep> deps;
    std::optional<std::string> url;
    std::optional<std::string> hash;
    std::optional<std::string> imageMd5;
    std::optional<uint32_t> dlsize;
    std::optional<uint32_t> imsize;
    LocalFiles files;
};

struct ManifestStep {
    std::string script;                  // its member in the script tar; empty for an image
    std::optional<ManifestImage> image;  // of a script: none
};

/// What is wrong with a value, before it is known where in the file that stands.
struct [[nodiscard]] Complaint {
    std::string key;   // empty: the entry itself
    std::string text;  // empty: no complaint

    explicit operator bool() const { return !text.empty(); }
};

/// The manifest as a whole, in place of an entry.
constexpr size_t kWholeManifest = 0;

struct Manifest {
    std::string file;    // as it was named on the command line
    std::string folder;  // in which it lies
    TableLines lines;
    std::string hardware;
    bool cloneOverlay = false;
    int32_t keyOffset = -1;  // negative: nothing is encrypted
    std::optional<std::string> scriptUrl;
    std::optional<std::string> scriptHash;
    std::optional<uint32_t> scriptDlsize;
    std::vector<ManifestStep> steps;
    LocalFiles files;

    /// \param entry counted from 1 as Lua does; kWholeManifest.
    /// \return the error as a fault (EINVAL) that names file, line, entry and key; no fault if there is no error.
    Fault located(size_t entry, const Complaint& complaint) const;

    /// \return the path of a member's local file. `image`: in whose tar it is; null: the script tar.
    std::string localFileOf(const ManifestImage* image, const std::string& member) const;
};

/// \return what makes `name` unfit, as the end of a sentence; empty if the device can use it.
std::string memberNameFault(const std::string& name);

/// The rules for a manifest beyond the types of its fields.
/// \return the first fault.
Fault checkManifest(const Manifest& manifest);
