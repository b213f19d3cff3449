#include "launcher/syscalls/syscall_rules.h"

#include "launcher/syscalls/syscall_names.h"
#include "rovu_sim/fault_rules.h"

#include <cerrno>
#include <cstring>
#include <sys/syscall.h>

namespace rovusim {
namespace {

constexpr int kLastError = 133;  // the highest errno value that has a name
constexpr unsigned kMostCalls = 1000000;
constexpr unsigned kMostInstructions = 1000000000;

bool parseError(const std::string& name, int* error) {
    for (int candidate = 1; candidate <= kLastError; ++candidate) {
        const char* known = strerrorname_np(candidate);
        if (known == nullptr || name != known) continue;
        *error = candidate;
        return true;
    }
    return false;
}

// Parses NAME:N, or NAME:N+ with its plus sign.
bool parseCall(const std::string& text, SyscallRule* rule, std::string* why) {
    const size_t colon = text.find(':');
    const std::string name = text.substr(0, colon);
    if (!syscallNumber(name, &rule->number)) {
        *why = "\"" + name + "\" is not a system call";
        return false;
    }
    std::string first = colon == std::string::npos ? "" : text.substr(colon + 1);
    rule->onwards = !first.empty() && first.back() == '+';
    if (rule->onwards) first.pop_back();
    if (parseCount(first, kMostCalls, &rule->first) && rule->first > 0) return true;
    *why = "a number from 1 is expected after \"" + name + ":\"";
    return false;
}

bool returns(int number) {
    return number != SYS_exit && number != SYS_exit_group && number != SYS_rt_sigreturn;
}

// Takes "/INSTRUCTIONS" off the end of the first part of a rule.
bool parseInstructions(std::string* call, SyscallRule* rule, std::string* why) {
    const size_t slash = call->find('/');
    if (slash == std::string::npos) return true;
    if (!parseCount(call->substr(slash + 1), kMostInstructions, &rule->instructions) ||
        rule->instructions == 0) {
        *why = "a number of instructions is expected after \"/\"";
        return false;
    }
    call->resize(slash);
    return true;
}

// Splits a rule at its equals sign.
bool splitRule(const std::string& text, std::string* call, std::string* what, std::string* why) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
        *why = "NAME:N=WHAT is expected";
        return false;
    }
    *call = text.substr(0, equals);
    *what = text.substr(equals + 1);
    return true;
}

}  // namespace

int parseFailRule(const std::string& text, SyscallRule* rule, std::string* why) {
    SyscallRule parsed;
    std::string call;
    std::string what;
    if (!splitRule(text, &call, &what, why) || !parseCall(call, &parsed, why)) return EINVAL;
    if (!returns(parsed.number)) {
        *why = syscallName(parsed.number) + " never returns";
        return EINVAL;
    }
    if (!parseError(what, &parsed.error)) {
        *why = "\"" + what + "\" is not the name of an errno value";
        return EINVAL;
    }
    *rule = parsed;
    return 0;
}

int parseKillRule(const std::string& text, SyscallRule* rule, std::string* why) {
    SyscallRule parsed;
    std::string call;
    std::string what;
    if (!splitRule(text, &call, &what, why) || !parseInstructions(&call, &parsed, why)) return EINVAL;
    if (!parseCall(call, &parsed, why)) return EINVAL;
    if (!parseSignal(what, &parsed.signal)) {
        *why = "\"" + what + "\" is not a signal";
        return EINVAL;
    }
    *rule = parsed;
    return 0;
}

}  // namespace rovusim
