// Which calls go wrong in a run, and how.
//
// A rule reads WHICH=HOW. WHICH: a number K, the K-th call of the run; TOOL, each call of it; TOOL:N, its
// N-th call. HOW: exit:STATUS, signal:NAME, missing, half:STATUS or hang.
#pragma once

#include "rovu_sim/call_log.h"

#include <string>
#include <vector>

namespace rovusim {

enum class FaultKind {
    eExit,     // ends with the status, and does nothing
    eSignal,   // dies of the signal, and does nothing
    eMissing,  // as if the command did not exist: a message and status 127
    eHalf,     // does its work, a volume update half of it, and then ends with the status
    eHang,     // never ends by itself
};

struct FaultRule {
    std::string tool;     // empty: any
    unsigned number = 0;  // 0: each call; else among all calls, or among those of `tool`
    FaultKind kind = FaultKind::eExit;
    int value = 0;  // exit status or signal number
};

/// \return 0, or EINVAL with the reason in words in `why`.
int parseFaultRule(const std::string& text, FaultRule* rule, std::string* why);

/// Keeps the rules for a run; each must parse. An empty list removes them.
int storeFaultRules(const std::string& stateDir, const std::vector<std::string>& rules);

/// Looks for the first stored rule that a call matches.
/// \return whether there is one; `rule` is written only then.
bool findFault(const std::string& stateDir, const std::string& tool, const CallCount& count, FaultRule* rule);

}  // namespace rovusim
