// The check of an update that has just been built, before anybody can fetch it.

#pragma once

#include "fault.h"
#include "finding.h"
#include "manifest.h"
#include "progress_bar.h"
#include "tar_members.h"

#include <string>

struct BuiltSpec {
    std::string bytes;    // accepted by the device's code
    std::string folder;   // where its tars are
    std::string out;      // where they will be: the folder's name in messages
    std::string secrets;  // key file; empty: none
    const TarContents& tars;
};

/// Applies the rules of `check` to the spec and its tars, encrypted or not.
/// \param findings receives errors and warnings, in the order of a report; their places are those of the manifest.
Fault checkBuilt(const BuiltSpec& spec, const Manifest& manifest, ProgressBar* bar, Findings* findings);
