// The common argument checks and exit statuses of the subcommands.
#pragma once

#include <cstdint>
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

/// Parses a number, or with K, M or G as many times 1024 and so on.
/// \return whether it is one, and positive.
inline bool parseSize(const char* text, uint64_t* bytes) {
    constexpr uint64_t kMost = uint64_t{1} << 40;
    char* end = nullptr;
    *bytes = strtoull(text, &end, 10);
    const char* units = "KMG";
    const char* unit = *end == '\0' ? nullptr : strchr(units, *end);
    if (unit != nullptr) {
        *bytes <<= 10 * (unit - units + 1);
        ++end;
    }
    return text[0] >= '0' && text[0] <= '9' && *end == '\0' && *bytes > 0 && *bytes <= kMost;
}

}  // namespace rovusim
