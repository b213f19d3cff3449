// The command line.

#pragma once

/// Reads the command line and runs the command that it names. What is wrong with it is printed to stderr,
/// help and version to stdout.
///
/// \return the exit status
int runCommandLine(int argc, char** argv);
