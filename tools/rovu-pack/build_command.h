// The command "build".

#pragma once

#include <CLI/CLI.hpp>

/// Adds the command to `app`. If it is chosen, parsing runs it and stores its exit status in `*exitStatus`,
/// which must outlive the parsing.
void addBuildCommand(CLI::App* app, int* exitStatus);
