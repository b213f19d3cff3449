// The common argument checks and exit statuses of the subcommands.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rovusim {

/// The exit status of wrong arguments.
constexpr int kExitUsage = 2;

/// Prints the help text.
/// \return the exit status.
inline int help(const char* text) {
    fputs(text, stdout);
    return EXIT_SUCCESS;
}

/// Prints the help text on standard error, after wrong arguments.
/// \return the exit status.
inline int misuse(const char* text) {
    fputs(text, stderr);
    return kExitUsage;
}

/// \param rc 0 or an errno value that was reported
/// \return the exit status.
inline int exitFor(int rc) {
    return rc == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

/// Checks the arguments of a subcommand whose only option is --help.
/// \param words the number of arguments that the subcommand takes
/// \return whether to go on; else `exitStatus` is set.
inline bool isPlainCall(int argc, char** argv, int words, const char* usage, int* exitStatus) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        *exitStatus = help(usage);
        return false;
    }
    if (argc == words + 1 && argv[1][0] != '-') return true;
    *exitStatus = misuse(usage);
    return false;
}

}  // namespace rovusim
