// The outcome of a build as JSON.

#pragma once

#include "update_builder.h"

#include <string>

/// \return JSON text of what was made and what the check says of it. Names and their meanings are stable, and those of
///         check's where they mean the same.
std::string buildJson(const BuildOptions& options, const BuildResult& result);
