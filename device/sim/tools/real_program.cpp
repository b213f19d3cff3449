#include "tools/real_program.h"

#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/tool_names.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

namespace rovusim {
namespace {

constexpr int kNotFound = 127;
constexpr int kCannotRun = 126;

std::string findReal(const std::string& name) {
    const std::string path = kRealPath;
    for (size_t start = 0; start < path.size();) {
        size_t end = path.find(':', start);
        if (end == std::string::npos) end = path.size();
        std::string candidate = path.substr(start, end - start) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0) return candidate;
        start = end + 1;
    }
    return "";
}

}  // namespace

int becomeReal(const ToolCallInside& call) {
    const std::string program = call.tool == kShellTool ? kRealShellInside : findReal(call.tool);
    if (program.empty()) {
        fprintf(stderr, "sh: %s: not found\n", call.tool.c_str());
        return kNotFound;
    }
    execv(program.c_str(), call.argv);
    const int error = errno;
    fprintf(stderr, "%s: cannot run %s: %s\n", call.tool.c_str(), program.c_str(), strerror(error));
    return error == ENOENT ? kNotFound : kCannotRun;
}

void runReal(const ToolCallInside& call) {
    const pid_t child = fork();
    if (child < 0) return;
    if (child == 0) _exit(becomeReal(call));
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace rovusim
