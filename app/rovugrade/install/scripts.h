// Members of tars, and scripts among them. Scripts travel in tars and stand on the disk only while they run.

#pragma once

#include <string>

/// Extracts `member` from the tar `tar` of `workDir` into `workDir`, under its own relative path.
/// \return 0; not 0 after logging: the result of runStep() for tar.
[[nodiscard]] int extractFromTar(const std::string& workDir, const std::string& tar,
                                 const std::string& member);

/// Extracts the script `name` from a tar, runs it with /bin/sh in the program's own working directory, and
/// removes it, whatever its result. Does nothing in a dry run.
/// \return 0; not 0 after logging: the result of runStep() for tar or for the script.
[[nodiscard]] int runScript(const std::string& workDir, const std::string& tar, const std::string& name);
