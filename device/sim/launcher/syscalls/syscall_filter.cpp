#include "launcher/syscalls/syscall_filter.h"

#include "launcher/host_program.h"
#include "rovu_sim/fault_rules.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>

namespace rovusim {
namespace {

constexpr uint32_t kRefused = SCMP_ACT_ERRNO(EPERM);

bool has(const std::vector<int>& calls, int call) {
    return std::find(calls.begin(), calls.end(), call) != calls.end();
}

// Of an argument that is an int or unsigned: the kernel does not look at the upper half either.
scmp_arg_cmp isEqual(unsigned argument, unsigned value) {
    return {argument, SCMP_CMP_MASKED_EQ, UINT32_MAX, value};
}

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
    rule->number = seccomp_syscall_resolve_name(name.c_str());
    if (rule->number < 0) {
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

int writeSyscallFilter(const FilterPlan& plan, zem::Descriptor* file) {
    // The library has one unconditional action for each call: if ioctl is watched, of which some are refused, all calls are.
    const bool all = plan.all || has(plan.calls, SYS_ioctl);
    const std::unique_ptr<void, decltype(&seccomp_release)> filter(
        seccomp_init(all ? SCMP_ACT_NOTIFY : SCMP_ACT_ALLOW), seccomp_release);
    // Other architectures number their calls differently.
    int rc = filter == nullptr ? -ENOMEM : seccomp_attr_set(filter.get(), SCMP_FLTATR_ACT_BADARCH, kRefused);
    const auto add = [&](uint32_t action, int call, const std::vector<scmp_arg_cmp>& conditions) {
        if (rc == 0)
            rc = seccomp_rule_add_array(filter.get(), action, call, static_cast<unsigned>(conditions.size()),
                                        conditions.data());
    };
    const std::vector<int> onSocket = {SYS_sendmsg, SYS_read},
                           refused = {SYS_keyctl, SYS_add_key, SYS_request_key, SYS_syslog};
    const auto socket = static_cast<unsigned>(plan.exemptSocket);
    for (const unsigned request : {unsigned{TIOCSTI}, unsigned{TIOCLINUX}})
        add(kRefused, SYS_ioctl, {isEqual(1, request)});
    for (const int call : refused)
        add(kRefused, call, {});
    for (const int call : onSocket) {
        if (all) add(SCMP_ACT_ALLOW, call, {isEqual(0, socket)});
    }
    for (const int call : plan.calls) {
        if (all || has(refused, call)) continue;
        const scmp_arg_cmp elsewhere = {0, SCMP_CMP_NE, socket, 0};
        add(SCMP_ACT_NOTIFY, call,
            has(onSocket, call) ? std::vector{elsewhere} : std::vector<scmp_arg_cmp>());
    }
    // By a path, and not by a descriptor, as every program does with each file that it opens.
    for (const int call : plan.statCalls) {
        if (!all && !has(plan.calls, call))
            add(SCMP_ACT_NOTIFY, call, {isEqual(0, static_cast<unsigned>(AT_FDCWD))});
    }
    file->reset(memfd_create("filter", MFD_CLOEXEC));
    if (rc == 0) rc = file->isOpen() ? seccomp_export_bpf(filter.get(), file->get()) : -errno;
    return rc == 0 ? 0 : cannot("make", "the filter of system calls", -rc);
}

std::string syscallName(int number) {
    const std::unique_ptr<char, decltype(&free)> name(
        seccomp_syscall_resolve_num_arch(seccomp_arch_native(), number), free);
    return name == nullptr ? std::to_string(number) : name.get();
}

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
