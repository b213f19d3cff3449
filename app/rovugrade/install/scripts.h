// Extracts members of tars, and runs scripts. A script is on the disk only while it runs. The
// preparation scripts are those at the head of the list that are marked to run before any image is fetched; a marked script
// further down is an ordinary one.

#pragma once

#include "transfer/file_decryption.h"
#include "update_spec/spec.h"

#include <string>

/// Extracts `member` from the tar `tar` of `workDir` into `workDir`, under its own relative path.
/// \return 0; not 0 after logging: the result of runStep() for tar.
[[nodiscard]] int extractFromTar(const std::string& workDir, const std::string& tar,
                                 const std::string& member);

/// Extracts the script `name` from a tar, runs it with /bin/sh in the program's own working directory, and
/// removes it, whatever its result. Does nothing in a dry run.
/// \return 0; not 0 after logging: the result of runStep() for tar or for the script.
[[nodiscard]] int runScript(const std::string& workDir, const std::string& tar, const std::string& name);

/// Whether `part` is a script whose base name marks it to run before any image is fetched, if it stands among
/// the leading ones of the list.
bool isPreparationScript(const UpdateSpecVer1::Part& part);

/// Fetches the script tar into `workDir`, if the spec has one.
/// \return whether it is there, or not needed.
[[nodiscard]] bool fetchScriptTar(const UpdateSpecVer1& spec, const std::string& workDir,
                                  const FileKey& fileKey);

/// Runs the leading scripts of the list whose base names begin with '_'.
/// \param position receives the first part that is no such script; null if none is left.
/// \return false after the first script that failed.
[[nodiscard]] bool runPreparationScripts(UpdateSpecVer1* spec, const std::string& workDir,
                                         UpdateSpecVer1::Part** position);
