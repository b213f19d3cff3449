// rovu-sim-tool: what stands inside a device for every simulated tool, and for the shell; the name by which it is
// called selects the tool.
//
// It is process 1, too. As a tool, it sends its command line to the launcher, which records the call and does the work,
// and does itself what only a process inside can do: become the real program, die by a signal, end others, change a node
// under /dev.

#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/tool_channel.h"
#include "rovu_sim/volume_store.h"
#include "tools/init.h"
#include "tools/real_program.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using namespace rovusim;

template <size_t N>
bool isOneOf(const std::string& name, const char* const (&list)[N]) {
    for (const char* entry : list) {
        if (name == entry) return true;
    }
    return false;
}

// If the caller has closed a standard descriptor, the channel could become descriptor 2 and receive the error
// messages. The descriptors opened here are close-on-exec, so a real program does not see them.
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

int callLauncher(int argc, char** argv, const std::string& tool, ToolReply* reply) {
    const zem::Descriptor channel(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!channel.isOpen()) return errno;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", kChannelInside);
    if (connect(channel.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return errno;
    ToolRequest request;
    request.words.push_back(tool);
    request.words.insert(request.words.end(), argv + 1, argv + argc);
    request.input.reset(dup(STDIN_FILENO));
    request.output.reset(dup(STDOUT_FILENO));
    request.errors.reset(dup(STDERR_FILENO));
    // Not blocking: a FIFO as an image would never open.
    if (tool == "ubiupdatevol" && argc > 1)
        request.image.reset(open(argv[argc - 1], O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (int rc = sendRequest(channel.get(), request); rc != 0) return rc;
    return receiveReply(channel.get(), reply);
}

int changeNode(const ToolReply& reply) {
    if (reply.node == NodeChange::eNone) return 0;
    const std::string node = std::string(kUbiDevice) + "_" + std::to_string(reply.volumeId);
    if (unlink(node.c_str()) != 0 && errno != ENOENT) return errno;
    if (reply.node == NodeChange::eRemoved) return 0;
    return symlink(volumePath(kStateInside, reply.volumeId).c_str(), node.c_str()) == 0 ? 0 : errno;
}

int proceed(const ToolReply& reply, const ToolCallInside& call) {
    switch (reply.next) {
    case NextStep::eDie:
        dieBySignal(reply.value);
    case NextStep::eHang:
        hang();
    case NextStep::eRun:
        return becomeReal(call);
    case NextStep::eRunAndReturn:
        runReal(call);
        return reply.value;
    case NextStep::eKill:
        killNamed(call);
        break;
    case NextStep::eExit:
        break;
    }
    return reply.value;
}

int runRecorded(const ToolCallInside& call) {
    ToolReply reply;
    int rc = callLauncher(call.argc, call.argv, call.tool, &reply);
    if (rc == 0) rc = changeNode(reply);
    if (rc == 0) return proceed(reply, call);
    fprintf(stderr, "%s: the simulator does not answer: %s\n", call.tool.c_str(), strerror(rc));
    return kExitNotFound;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 1) return EXIT_FAILURE;
    if (std::strcmp(argv[0], kInitInside) == 0) runInit(argc, argv);
    occupyStandardDescriptors();
    ToolCallInside call = {argv[0], argc, argv};
    call.tool.erase(0, call.tool.rfind('/') + 1);
    const bool isTool = isOneOf(call.tool, kSimulatedTools) || isOneOf(call.tool, kPassThroughs);
    if (isTool || isShellWithScript(argc, argv)) return runRecorded(call);
    // Under any other name this binary has replaced the program of /bin/sh.
    call.tool = kShellTool;
    return becomeReal(call);
}
