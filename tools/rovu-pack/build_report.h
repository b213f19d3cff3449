// What a build made, for people.

#pragma once

#include "update_builder.h"

#include <cstdio>

/// Prints a table: names, sizes in bytes and digests.
void printBuildReport(const std::vector<BuiltFile>& made, FILE* out);
