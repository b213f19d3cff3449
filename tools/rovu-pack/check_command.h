// The command "check".

#pragma once

#include <CLI/CLI.hpp>

/// Adds the command to `app`. If it is chosen, parsing runs it and stores its exit status in `*exitStatus`,
/// which must outlive the parsing.
void addCheckCommand(CLI::App* app, int* exitStatus);
