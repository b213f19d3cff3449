// A check's result, for people and for programs.

#pragma once

#include "checker/update_check.h"

#include <cstdio>

/// Prints the findings, in their order.
void printFindings(const Findings& findings, FILE* out);

/// Prints how many there are of each severity.
void printCounts(const Findings& findings, FILE* out);

/// Prints what one device decides, and whether its room is enough.
void printChoices(const FleetRow& row, FILE* out);

/// Prints the plan for one device, on either active set, with all commands.
void printPlan(const FleetRow& row, FILE* out);

/// Prints two tables with a row for each device: what boots afterwards, and what the update takes.
void printFleet(const std::vector<FleetRow>& fleet, FILE* out);

/// \return JSON text of an object whose only key is "error": why there is no result.
std::string faultJson(const Fault& fault);

/// \return JSON text of everything that the check found and planned. Names and their meanings are stable.
std::string checkJson(const CheckResult& result);
