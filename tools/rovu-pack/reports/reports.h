// A check's result, for people and for programs.

#pragma once

#include "update_check.h"

#include <cstdio>

/// Prints the findings, errors first, and their numbers.
void printFindings(const Findings& findings, FILE* out);

/// Prints the plan for one device, on either active set.
void printPlan(const FleetRow& row, FILE* out);

/// Prints a table with a row for each device.
void printFleet(const std::vector<FleetRow>& fleet, FILE* out);

/// \return JSON text of everything that the check found and planned. Names and their meanings are stable.
std::string checkJson(const CheckResult& result);
