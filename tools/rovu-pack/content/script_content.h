// Damage to a device that no later update repairs, and what the author did not mean.
//
// What fails in a script when a shell reads it.

#pragma once

#include "spec_view/finding.h"

#include <string>
#include <utility>
#include <vector>

/// A construct and the lines of the script that have it, from 1.
struct ScriptConstruct {
    enum Kind { eBash, eHazard };
    Kind kind;
    const char* name;  // with its article: "an array"
    std::vector<size_t> lines;
};

/// Finds constructs of bash that the shell of BusyBox lacks even with all of its options for bash, and hazards: what
/// works only on a workstation, or disturbs the update. Comments, strings and here-documents are skipped; what is in
/// doubt is not reported.
std::vector<ScriptConstruct> findConstructs(const std::string& script);

/// Whether the last command is a test before "&&", whose failure is that of the script: "[ -f x ] && rm x".
bool endsInTest(const std::string& script);

/// Finds commands that write to what the device boots from, or remove what it needs for the next update.
std::vector<ScriptConstruct> findDangers(const std::string& script);

/// Finds typographic characters, and placeholders that were not replaced.
std::vector<ScriptConstruct> findForeignText(const std::string& script);

/// The variables that a script uses and nothing sets, each with the line of its first use.
std::vector<std::pair<std::string, size_t>> findUnset(const std::string& script);

/// Judges the bytes of a script that the device's /bin/sh will run.
/// \param name what the sentences call it.
/// \param place where its name stands in the spec.
Findings checkScript(const std::string& bytes, const std::string& name, const FindingPlace& place);
