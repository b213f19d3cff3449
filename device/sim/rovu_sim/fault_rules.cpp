#include "rovu_sim/fault_rules.h"

#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/text_files.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace rovusim {
namespace {

std::string rulesPath(const std::string& stateDir) {
    return stateDir + "/run/faults";
}

bool isKnownTool(const std::string& name) {
    for (const char* tool : kSimulatedTools) {
        if (name == tool) return true;
    }
    for (const char* tool : kPassThroughs) {
        if (name == tool) return true;
    }
    return name == kShellTool;
}

bool parseWhich(const std::string& text, FaultRule* rule, std::string* why) {
    constexpr unsigned long kMostCalls = 1000000;
    if (parseCount(text, kMostCalls, &rule->number)) {
        if (rule->number == 0) *why = "calls are counted from 1";
        return rule->number > 0;
    }
    const size_t colon = text.find(':');
    rule->tool = text.substr(0, colon);
    if (!isKnownTool(rule->tool)) {
        *why = "\"" + rule->tool + "\" is not a command that the simulator provides or records";
        return false;
    }
    if (colon == std::string::npos) return true;
    if (parseCount(text.substr(colon + 1), kMostCalls, &rule->number) && rule->number > 0) return true;
    *why = "a number from 1 is expected after the colon";
    return false;
}

bool parseHow(const std::string& text, FaultRule* rule, std::string* why) {
    const size_t colon = text.find(':');
    const std::string how = text.substr(0, colon);
    const std::string value = colon == std::string::npos ? "" : text.substr(colon + 1);
    if ((how == "missing" || how == "hang") && colon == std::string::npos) {
        rule->kind = how == "missing" ? FaultKind::eMissing : FaultKind::eHang;
        return true;
    }
    if (how == "exit" || how == "half") {
        rule->kind = how == "exit" ? FaultKind::eExit : FaultKind::eHalf;
        unsigned status = 0;
        if (!parseCount(value, 255, &status)) {
            *why = "an exit status from 0 to 255 is expected after \"" + how + ":\"";
            return false;
        }
        rule->value = static_cast<int>(status);
        return true;
    }
    if (how == "signal") {
        rule->kind = FaultKind::eSignal;
        if (parseSignal(value, &rule->value)) return true;
        *why = "\"" + value + "\" is not a signal";
        return false;
    }
    *why = "\"" + text + "\" is none of exit:STATUS, signal:NAME, missing, half:STATUS, hang";
    return false;
}

}  // namespace

bool parseCount(const std::string& text, unsigned long limit, unsigned* number) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return false;
    errno = 0;
    const unsigned long value = std::strtoul(text.c_str(), nullptr, 10);
    if (errno != 0 || value > limit) return false;
    *number = static_cast<unsigned>(value);
    return true;
}

bool parseSignal(const std::string& text, int* signal) {
    unsigned number = 0;
    if (parseCount(text, 64, &number) && number > 0) {
        *signal = static_cast<int>(number);
        return true;
    }
    const std::string name = text.compare(0, 3, "SIG") == 0 ? text.substr(3) : text;
    for (int candidate = 1; candidate < 32; ++candidate) {
        const char* abbreviation = sigabbrev_np(candidate);
        if (abbreviation == nullptr || name != abbreviation) continue;
        *signal = candidate;
        return true;
    }
    return false;
}

int parseFaultRule(const std::string& text, FaultRule* rule, std::string* why) {
    FaultRule parsed;
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
        *why = "WHICH=HOW is expected";
        return EINVAL;
    }
    if (!parseWhich(text.substr(0, equals), &parsed, why)) return EINVAL;
    if (!parseHow(text.substr(equals + 1), &parsed, why)) return EINVAL;
    *rule = parsed;
    return 0;
}

int storeFaultRules(const std::string& stateDir, const std::vector<std::string>& rules) {
    if (rules.empty()) return unlink(rulesPath(stateDir).c_str()) == 0 || errno == ENOENT ? 0 : errno;
    std::string text;
    for (const std::string& rule : rules)
        text += rule + "\n";
    return replaceTextFile(rulesPath(stateDir), text);
}

bool findFault(const std::string& stateDir, const std::string& tool, const CallCount& count,
               FaultRule* rule) {
    std::string text;
    if (readTextFile(rulesPath(stateDir), &text) != 0) return false;
    for (const std::string& line : splitLines(text)) {
        FaultRule candidate;
        std::string why;
        if (parseFaultRule(line, &candidate, &why) != 0) continue;
        if (!candidate.tool.empty() && candidate.tool != tool) continue;
        const unsigned reached = candidate.tool.empty() ? count.overall : count.ofTool;
        if (candidate.number != 0 && candidate.number != reached) continue;
        *rule = candidate;
        return true;
    }
    return false;
}

}  // namespace rovusim
