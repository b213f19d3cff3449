// Parses a command line with CLI11, and refuses what that library accepts and nobody means.

#pragma once

#include <CLI/CLI.hpp>

/// Parses the words after the program's name, as CLI::App::parse(), and throws what that throws. An empty value, which is
/// most often an unset variable, is an error that names its option: as a word, and after "=", where CLI11 takes the next
/// word. So is a value for a flag, as in "--flag=false".
void parseCommandLine(CLI::App* app, int argc, char** argv);
