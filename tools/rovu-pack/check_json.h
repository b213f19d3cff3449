// A check's result, for programs.

#pragma once

#include "check_update.h"

/// \return JSON text of everything that the check found and planned. Names and their meanings are stable.
std::string checkJson(const CheckResult& result);
