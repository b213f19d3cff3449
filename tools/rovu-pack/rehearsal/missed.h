// What scripts miss on a device's root file system, by what its shell says of it.

#pragma once

#include <string>
#include <vector>

/// \param log what a run said.
/// \param root the name of the device's root file system.
/// \return a sentence for each program that was not found and each error of syntax, once.
std::vector<std::string> missedIn(const std::string& log, const std::string& root);
