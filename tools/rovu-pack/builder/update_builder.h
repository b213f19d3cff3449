// From a manifest to a folder that a web server can serve.
//
// The tars are packed, encrypted and measured one by one; the manifest is completed with what was measured;
// the spec is signed, or left to be signed elsewhere, and published only if the device's own code accepts it and the
// check finds no error in it. The spec moves last: whoever fetches in between gets an old spec whose digests do not
// match, and no device takes that.

#pragma once

#include "host/fault.h"
#include "host/progress_bar.h"
#include "spec_view/finding.h"

#include <cstdint>
#include <string>
#include <vector>

/// What the command line says.
struct BuildOptions {
    std::string manifest;
    std::string out;
    std::string key;
    std::string keyPass;  // where its pass phrase or PIN is; empty: the terminal
    std::string baseUrl;
    std::string secrets;                 // empty: none
    std::vector<std::string> variables;  // "NAME=VALUE" for the manifest's vars
    bool isUnsigned = false;             // in place of a key: the spec is signed elsewhere
    bool followLinks = false;            // out of the manifest's folder too
    bool force = false;                  // publish in spite of errors that the check finds
};

/// A file that was made, or the image in one.
struct BuiltFile {
    std::string name;
    uint64_t size;           // bytes
    const char* digestKind;  // "sha256" or "md5"
    std::string digest;
    bool isMember;  // of the file before it
};

struct BuildResult {
    std::vector<BuiltFile> files;  // the output, a file's image after the file
    Findings findings;             // errors and warnings of the check, which name the manifest
    std::string toSign;            // hex SHA-256, for a spec that is signed elsewhere; else empty
    bool isRefused = false;        // for these errors: nothing was made
};

/// Makes the update, all of it or nothing.
Fault buildUpdate(const BuildOptions& options, ProgressBar* bar, BuildResult* result);
