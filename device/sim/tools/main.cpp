// rovu-sim-tool: every simulated tool in one binary; the name by which it is called selects the tool.
//
// Each call is recorded, then fails if a fault rule matches, else does its work.

#include "rovu_sim/call_log.h"
#include "rovu_sim/fault_rules.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/tool_names.h"
#include "tools/real_program.h"
#include "tools/shell_shim.h"
#include "tools/simulated_tools.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using namespace rovusim;

constexpr int kNotFound = 127;

struct Tool {
    const char* name;
    ToolWork work;
};
constexpr Tool kTools[] = {
    {"ubinfo", ubinfo},
    {"ubirmvol", ubirmvol},
    {"ubimkvol", ubimkvol},
    {"ubiupdatevol", ubiupdatevol},
    {"fw_printenv", fwPrintenv},
    {"fw_setenv", fwSetenv},
    {"readplatform.sh", readPlatform},
    {"killall", killAll},
    {"reboot", reboot},
};

ToolWork workOf(const std::string& name) {
    for (const Tool& tool : kTools) {
        if (name == tool.name) return tool.work;
    }
    for (const char* tool : kPassThroughs) {
        if (name == tool) return passThrough;
    }
    return nullptr;
}

// If the caller has closed a standard descriptor, the call log could become descriptor 2 and receive the
// error messages. The descriptors opened here are close-on-exec, so a real program does not see them.
void occupyStandardDescriptors() {
    int fd = 0;
    do {
        fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) close(fd);
}

[[noreturn]] void hang() {
    for (;;)
        pause();
}

[[noreturn]] void dieBySignal(int signal) {
    const rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    std::signal(signal, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    sigprocmask(SIG_UNBLOCK, &only, nullptr);
    kill(getpid(), signal);
    hang();  // the signal does not kill
}

int runRecorded(ToolCall* call, ToolWork work) {
    CallCount count;
    if (int rc = recordCall(kStateInside, call->tool, call->args, &count); rc != 0) {
        fprintf(stderr, "%s: cannot record the call: %s\n", call->tool.c_str(), strerror(rc));
        return kNotFound;
    }
    FaultRule rule;
    if (!findFault(kStateInside, call->tool, count, &rule)) return work(*call);
    switch (rule.kind) {
    case FaultKind::eExit:
        return rule.value;
    case FaultKind::eSignal:
        dieBySignal(rule.value);
    case FaultKind::eHang:
        hang();
    case FaultKind::eMissing:
        fprintf(stderr, "sh: 1: %s: not found\n", call->tool.c_str());
        return kNotFound;
    case FaultKind::eHalf:
        break;
    }
    call->half = true;
    work(*call);
    fflush(stdout);
    return rule.value;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 1) return EXIT_FAILURE;
    occupyStandardDescriptors();
    ToolCall call;
    call.tool = argv[0];
    call.tool.erase(0, call.tool.rfind('/') + 1);
    call.args.assign(argv + 1, argv + argc);
    call.argv = argv;
    call.argc = argc;
    if (ToolWork work = workOf(call.tool); work != nullptr) return runRecorded(&call, work);
    if (isShellWithScript(argc, argv)) return runRecorded(&call, runRealShell);
    // Under any other name this binary has replaced the program of /bin/sh.
    return runRealShell(call);
}
