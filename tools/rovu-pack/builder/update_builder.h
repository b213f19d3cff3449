// From a manifest to a folder that a web server can serve.
//
// The tars are packed, encrypted and measured one by one; the manifest is completed with what was measured;
// the spec is signed, and published only if the device's own code accepts it. The spec moves last: whoever
// fetches in between gets an old spec whose digests do not match, and no device takes that.

#pragma once

#include "fault.h"
#include "progress_bar.h"

#include <cstdint>
#include <string>
#include <vector>

/// What the command line says.
struct BuildOptions {
    std::string manifest;
    std::string out;
    std::string key;
    std::string baseUrl;
    std::string secrets;  // empty: none
};

/// A file that was made, or the image in one.
struct BuiltFile {
    std::string name;
    uint64_t size;           // bytes
    const char* digestKind;  // "sha256" or "md5"
    std::string digest;
    bool isMember;  // of the file before it
};

/// Makes the update, all of it or nothing.
/// \param made receives the output, a file's image after the file.
Fault buildUpdate(const BuildOptions& options, ProgressBar* bar, std::vector<BuiltFile>* made);
