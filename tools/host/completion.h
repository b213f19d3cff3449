// Completion for bash and zsh, made from what a tool's command line accepts.

#pragma once

#include <CLI/CLI.hpp>
#include <string>

/// Prints the completion of `app`, whose subcommands hold all of its options, for the shell that is named.
/// \return the exit status: 0, or 2 for another shell than bash and zsh.
int printCompletion(const CLI::App& app, const std::string& shell);
