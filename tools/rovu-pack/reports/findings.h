// Findings as JSON, for all documents that hold some.

#pragma once

#include "spec_view/finding.h"

#include <nlohmann/json.hpp>
#include <string>

/// Adds the keys errors, warnings, notes and findings to `whole`.
void addFindings(const Findings& findings, nlohmann::ordered_json* whole);

/// \return the document's text, in ASCII, so that DEL and C1 do not reach a terminal. What is no UTF-8 in it is replaced.
std::string jsonText(const nlohmann::ordered_json& whole);
