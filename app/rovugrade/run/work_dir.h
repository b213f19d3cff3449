// The run's scratch directory, and the names of what lies in it.

#pragma once

/// The work directory. Its existence means that a run is active, and locks out a second one.
constexpr char kWorkDir[] = "/tmp/rovu";

/// The report for other programs. It lies beside the work directory, in the same file system, and outlives
/// the run.
constexpr char kProgressPath[] = "/tmp/rovu.progress";

/// The next report, until it takes the place of the last one. A path of its own: it is written without memory too.
constexpr char kNextProgressPath[] = "/tmp/rovu/progress.tmp";

// Names in the work directory. An image's tar is named by its part (UpdateSpecVer1::Image::localName), the staging
// copy of a volume by the UBI tools (kStagingName).
constexpr char kSpecName[] = "rovu.lua";
constexpr char kScriptTar[] = "scriptTar";
