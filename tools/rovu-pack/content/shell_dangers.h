// What a script does to a device that no later update repairs, and what its author did not mean.

#pragma once

#include "shell_dialect.h"

/// Finds commands that write where the device starts from, or take away what it needs for the next update.
std::vector<ScriptConstruct> findDangers(const std::string& script);

/// Finds characters and words that stand for others: typographic ones, and what a template was to fill in.
std::vector<ScriptConstruct> findForeignText(const std::string& script);

/// The variables that a script uses and nothing sets, each with the line of its first use.
std::vector<std::pair<std::string, size_t>> findUnset(const std::string& script);
