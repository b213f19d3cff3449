// The files that will be served, against what the spec says of them.

#pragma once

#include "tars.h"

struct FileOptions {
    std::string folder;   // where the files are, each under the last step of its URL
    std::string secrets;  // key file as the device holds it; empty: not given
};

/// Opens the tars, decrypted if the spec says so, and fills in what they are.
/// \return 0, or a positive errno value with a sentence in `*error` if there is no room to decrypt in.
int checkFiles(const SpecView& spec, const FileOptions& options, Tars* tars, Findings* findings,
               std::string* error);
