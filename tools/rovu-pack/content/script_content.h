// What a shell would stumble over in a script.

#pragma once

#include "finding.h"

#include <string>

/// Judges the bytes of a script that the device's /bin/sh will run.
/// \param name what the sentences call it.
/// \param place where its name stands in the spec.
Findings checkScript(const std::string& bytes, const std::string& name, const FindingPlace& place);
