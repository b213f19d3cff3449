// Names of files that travel in an update, and land in a shell's command line and in the work directory.

#pragma once

#include <string>

/// \return what makes `name` unfit, as the end of a sentence; empty if the device can use it.
std::string memberNameFault(const std::string& name);
