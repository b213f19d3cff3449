// What is wrong with a command line: the message names the argument and what to write instead.
//
// The command line.

#pragma once

#include <CLI/CLI.hpp>
#include <string>

/// \return the message about a command line that `app` refused with `error`, without the program's name.
std::string usageMessage(const CLI::App& app, const CLI::ParseError& error);

/// \return the name of the command that was given, with a space before it; empty if none was.
std::string givenCommand(const CLI::App& app);

/// Reads the command line and runs the command that it names. What is wrong with it is printed to stderr,
/// help and version to stdout.
///
/// \return the exit status
int runCommandLine(int argc, char** argv);
