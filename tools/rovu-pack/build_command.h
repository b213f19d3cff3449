// The command "build".

#pragma once

#include "update_builder.h"

/// Makes an update out of a manifest, and prints a table of what it made. Errors are printed to stderr.
///
/// \return the exit status
int runBuild(const BuildOptions& options);
