// How the program ends, for scripts.

#pragma once

constexpr int kExitClean = 0;
constexpr int kExitFindings = 1;
constexpr int kExitTrouble = 2;  // usage, input or output
