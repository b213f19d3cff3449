// From a manifest to a folder that a web server can serve.

#pragma once

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
    bool isMember;  // of the file in front of it
};

/// Makes the update, all of it or nothing.
/// \return 0, with what was made in `*made`; or a positive errno value with a sentence in `*error`.
int buildUpdate(const BuildOptions& options, ProgressBar* bar, std::vector<BuiltFile>* made,
                std::string* error);
