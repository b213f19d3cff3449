// What a script does to a device that no later update repairs, and what its author did not mean.
//
// What a shell would stumble over in a script.

#pragma once

#include "content/shell_dialect.h"
#include "spec_view/finding.h"

#include <string>

/// Finds commands that write where the device starts from, or take away what it needs for the next update.
std::vector<ScriptConstruct> findDangers(const std::string& script);

/// Finds characters and words that stand for others: typographic ones, and what a template was to fill in.
std::vector<ScriptConstruct> findForeignText(const std::string& script);

/// The variables that a script uses and nothing sets, each with the line of its first use.
std::vector<std::pair<std::string, size_t>> findUnset(const std::string& script);

/// Judges the bytes of a script that the device's /bin/sh will run.
/// \param name what the sentences call it.
/// \param place where its name stands in the spec.
Findings checkScript(const std::string& bytes, const std::string& name, const FindingPlace& place);
