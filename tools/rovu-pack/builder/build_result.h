// The check of an update that has just been built, before anybody can fetch it, and the outcome of a build as JSON.

#pragma once

#include "builder/manifest.h"
#include "builder/update_builder.h"
#include "checker/tar_members.h"
#include "host/fault.h"
#include "host/progress_bar.h"
#include "spec_view/finding.h"

#include <string>

struct BuiltSpec {
    std::string bytes;
    std::string folder;   // where its tars are; empty: not packed yet, and not looked at
    std::string out;      // where they will be: the folder's name in messages
    std::string secrets;  // key file; empty: none
    const TarContents& tars;
};

/// Applies the rules of `check` to the spec and its tars, encrypted or not.
/// \param findings receives errors and warnings, in the order of a report; their places are those of the manifest.
Fault checkBuilt(const BuiltSpec& spec, const Manifest& manifest, ProgressBar* bar, Findings* findings);

/// \return JSON text of what was made and what the check says of it. Names and their meanings are stable, and those of
///         check's where they mean the same.
std::string buildJson(const BuildOptions& options, const BuildResult& result);
