// The command line.

#pragma once

/// Reads the options, from left to right, and the URL into the settings. -h prints the usage text and ends
/// the process at once, with status 0. \return false after logging what is wrong.
bool parseCommandLine(int argc, char** argv);
