// The command line, rovu [options] UPGRADE_URL, as getopt() reads it.

#pragma once

/// Reads the options, from left to right, and the URL into the settings. -h prints the usage and ends the process at
/// once, with status 0.
/// \return false after logging what is wrong.
[[nodiscard]] bool parseCommandLine(int argc, char** argv);
