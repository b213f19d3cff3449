// Preparation: the script tar, and the scripts at the head of the list that are marked to run before any image is
// fetched. A marked script further down is an ordinary one.

#pragma once

#include "file_key.h"
#include "spec.h"

#include <string>

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
