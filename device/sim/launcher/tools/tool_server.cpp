#include "launcher/tools/tool_server.h"

#include "launcher/host_program.h"
#include "launcher/tools/tool_call.h"
#include "rovu_sim/call_log.h"
#include "rovu_sim/fault_rules.h"
#include "rovu_sim/sandbox_paths.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <getopt.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace rovusim {
namespace {

constexpr int kWaitingCalls = 64;
constexpr time_t kPatienceSeconds = 5;  // with a peer that has connected and sends no request

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

// Null for a tool that is only recorded, and runs inside.
ToolWork workOf(const std::string& name) {
    for (const Tool& tool : kTools) {
        if (name == tool.name) return tool.work;
    }
    return nullptr;
}

// Through the folder's descriptor: a socket's address is short, and the path to a state directory may not be.
std::string addressIn(const zem::Descriptor& folder) {
    return "/proc/self/fd/" + std::to_string(folder.get()) + "/channel";
}

std::vector<char*> argvOf(std::vector<std::string>* words) {
    std::vector<char*> argv;
    for (std::string& word : *words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    return argv;
}

int work(ToolCall* call, ToolWork tool) {
    const int status = tool(*call);
    fflush(stdout);
    return status;
}

ToolReply replyTo(const FaultRule& rule, const ToolCall& call) {
    switch (rule.kind) {
    case FaultKind::eExit:
        return {NextStep::eExit, rule.value};
    case FaultKind::eSignal:
        return {NextStep::eDie, rule.value};
    case FaultKind::eHang:
        return {NextStep::eHang};
    case FaultKind::eHalf:
        return {NextStep::eRunAndReturn, rule.value};
    case FaultKind::eMissing:
        break;
    }
    fprintf(stderr, "sh: 1: %s: not found\n", call.tool.c_str());
    return {NextStep::eExit, kExitNotFound};
}

// Records the call, and does its work unless a fault rule says otherwise.
ToolReply answer(const ToolServer& server, ToolCall* call) {
    CallCount count;
    if (int rc = recordCall(server.stateDir, server.tmp, call->tool, call->args, &count); rc != 0) {
        fprintf(stderr, "%s: cannot record the call: %s\n", call->tool.c_str(), strerror(rc));
        return {NextStep::eExit, kExitNotFound};
    }
    ToolReply& reply = *call->reply;
    const ToolWork tool = workOf(call->tool);
    FaultRule rule;
    if (!findFault(server.stateDir, call->tool, count, &rule)) {
        if (tool == nullptr) return {NextStep::eRun};
        reply.value = work(call, tool);
        if (call->tool == "killall" && reply.value == 0) reply.next = NextStep::eKill;
        return reply;
    }
    if (rule.kind != FaultKind::eHalf || tool == nullptr) return replyTo(rule, *call);
    call->half = true;
    work(call, tool);
    reply.value = rule.value;
    return reply;
}

[[noreturn]] void serve(const ToolServer& server, int connection) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    signal(SIGPIPE, SIG_IGN);  // a tool that was ended does not read
    const timeval patience = {kPatienceSeconds, 0};
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ToolRequest request;
    if (receiveRequest(connection, &request) != 0) _exit(1);
    if (dup2(request.input.get(), 0) < 0 || dup2(request.output.get(), 1) < 0 ||
        dup2(request.errors.get(), 2) < 0)
        _exit(1);
    ToolCall call;
    call.stateDir = server.stateDir;
    call.tool = request.words.front();
    call.args.assign(request.words.begin() + 1, request.words.end());
    call.image = request.image.get();
    std::vector<char*> argv = argvOf(&request.words);
    call.argv = argv.data();
    call.argc = static_cast<int>(request.words.size());
    optind = 0;  // getopt starts anew
    ToolReply changed;
    call.reply = &changed;
    const ToolReply reply = answer(server, &call);
    // A file that is removed after the reply must be gone at once, as on a device: its room in /tmp may be needed next.
    for (zem::Descriptor* file : {&request.input, &request.output, &request.errors, &request.image})
        file->reset();
    for (const int stream : {0, 1, 2})
        close(stream);
    _exit(sendReply(connection, reply) == 0 ? 0 : 1);
}

}  // namespace

int startToolServer(const std::string& stateDir, const std::string& tmp, ToolServer* server) {
    server->stateDir = stateDir;
    server->tmp = tmp;
    const zem::Descriptor folder(
        open((stateDir + "/run").c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    server->listener.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!folder.isOpen() || !server->listener.isOpen()) return cannot("serve the tools of", stateDir, errno);
    unlinkat(folder.get(), "channel", 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", addressIn(folder).c_str());
    const bool listens =
        bind(server->listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        listen(server->listener.get(), kWaitingCalls) == 0;
    return listens ? 0 : cannot("serve the tools of", stateDir, errno);
}

bool answerTool(const ToolServer& server, int connection) {
    fflush(stdout);  // or the child would print it again
    const pid_t child = fork();
    if (child == 0) serve(server, connection);
    return child > 0;
}

void stopToolServer(const ToolServer& server) {
    unlink((server.stateDir + "/run/channel").c_str());
}

}  // namespace rovusim
