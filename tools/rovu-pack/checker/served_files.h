// The files that will be served, against what the spec says of them.

#pragma once

#include "checker/tar_members.h"
#include "host/fault.h"
#include "host/progress_bar.h"
#include "spec_view/finding.h"
#include "spec_view/tars.h"

#include <string>

struct FileOptions {
    std::string folder;                  // where the files are, each under the last step of its URL
    std::string secrets;                 // key file as the device holds it; empty: not given
    ProgressBar* bar = nullptr;          // that expects this work; null: one of the check's own
    const TarContents* built = nullptr;  // null: the files are not just built
};

struct ServedFiles {
    Tars tars;  // the spec's, with what their files are
    Findings findings;
};

/// Opens the tars of the spec, decrypted if it says so.
/// \return a fault if the key file cannot be read, or there is no room to decrypt in.
Fault checkServedFiles(const SpecView& spec, const FileOptions& options, ServedFiles* files);
