// Members out of tars, and scripts among them.

#pragma once

#include <string>

/// The script tar's name in the work directory.
constexpr char kScriptTar[] = "scriptTar";

/// Takes `member` out of the tar `tar` of `workDir` and lays it into `workDir`, under its own relative path.
/// \return 0; not 0 after logging: the negated runCommandF() result, or else the exit status, of tar.
int extractFromTar(const std::string& workDir, const std::string& tar, const std::string& member);

/// Takes the script `name` out of a tar, runs it with /bin/sh in the program's own working directory, and
/// removes it, whatever came of it. Does nothing in a dry run.
/// \return 0; not 0 after logging: as extractFromTar(), of tar or of the script.
int runScript(const std::string& workDir, const std::string& tar, const std::string& name);
