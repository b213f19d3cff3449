// Which tool calls fail in a run, and how.
//
// A rule reads WHICH=HOW. WHICH is K, the K-th call of the run; TOOL, each call of the tool; or TOOL:N, its
// N-th call. HOW is exit:STATUS, signal:NAME, missing, half:STATUS or hang.
#pragma once

#include "rovu_sim/call_log.h"

#include <string>
#include <vector>

namespace rovusim {

enum class FaultKind {
    eExit,     // does nothing and exits with the status
    eSignal,   // does nothing and is killed by the signal
    eMissing,  // as if the command did not exist: a message and status 127
    eHalf,     // does its work, or half of it for a volume update, and exits with the status
    eHang,     // never exits
};

struct FaultRule {
    std::string tool;     // empty: any
    unsigned number = 0;  // 0: each call; else among all calls, or among those of `tool`
    FaultKind kind = FaultKind::eExit;
    int value = 0;  // exit status or signal number
};

/// Parses a decimal number without a sign.
/// \return whether it is one of at most `limit`; `number` is written only then.
[[nodiscard]] bool parseCount(const std::string& text, unsigned long limit, unsigned* number);

/// Parses a signal: its number, or its name with or without SIG.
/// \return whether it is one; `signal` is written only then.
[[nodiscard]] bool parseSignal(const std::string& text, int* signal);

/// Parses one rule. `rule` is written on success only.
/// \return 0, or EINVAL with the reason in `why`.
[[nodiscard]] int parseFaultRule(const std::string& text, FaultRule* rule, std::string* why);

/// Stores the rules for a run; each must parse. An empty list removes them.
/// \return 0 or a positive errno value.
int storeFaultRules(const std::string& stateDir, const std::vector<std::string>& rules);

/// Finds the first stored rule that matches a call.
/// \return whether there is one; `rule` is written only then.
[[nodiscard]] bool findFault(const std::string& stateDir, const std::string& tool, const CallCount& count,
                             FaultRule* rule);

}  // namespace rovusim
