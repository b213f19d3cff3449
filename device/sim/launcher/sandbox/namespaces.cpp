#include "launcher/sandbox/namespaces.h"

#include "launcher/message.h"
#include "launcher/sandbox/foreign_processor.h"
#include "launcher/web/web_server.h"
#include "rovu_sim/text_files.h"

#include <cerrno>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace rovusim {
namespace {

// Unlike replaceTextFile: these files of the kernel are written in place, by one write.
int setKernelFile(const char* path, const std::string& text) {
    const zem::Descriptor file(open(path, O_WRONLY | O_CLOEXEC));
    if (!file.isOpen()) return errno;
    return writeFully(file.get(), text.data(), text.size());
}

int failWithoutUserNamespace(int error) {
    cannot("make", "a user namespace", error);
    complain(
        "the kernel forbids it to this user; one of its settings user.max_user_namespaces, "
        "kernel.unprivileged_userns_clone and kernel.apparmor_restrict_unprivileged_userns does. Change that, "
        "or run this as root");
    return error;
}

// Only one user is known inside, root: its files are those of who started the launcher.
int enterUserNamespace(bool* hasUserNamespace) {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    *hasUserNamespace = unshare(CLONE_NEWUSER) == 0;
    int rc = *hasUserNamespace ? 0 : errno;
    if (!*hasUserNamespace && user == 0) return 0;
    if (rc == 0) rc = setKernelFile("/proc/self/setgroups", "deny");
    if (rc == 0) rc = setKernelFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    if (rc == 0) rc = setKernelFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    if (rc != 0) return failWithoutUserNamespace(rc);
    // A script that is root in one more namespace has more of the kernel to try.
    (void)setKernelFile("/proc/sys/user/max_user_namespaces", "0");
    return 0;
}

}  // namespace

int tryUserNamespace() {
    const pid_t child = fork();
    if (child == 0) _exit(geteuid() == 0 || unshare(CLONE_NEWUSER) == 0 ? 0 : errno);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) return cannot("start", "a process", errno);
    return WEXITSTATUS(status) == 0 ? 0 : failWithoutUserNamespace(WEXITSTATUS(status));
}

int enterNamespaces(const NamespacePlan& plan, bool* hasUserNamespace, SandboxHandles* handles) {
    if (int rc = enterUserNamespace(hasUserNamespace); rc != 0) return rc;
    if (unshare(CLONE_NEWNS | (plan.usesHostNetwork ? 0 : CLONE_NEWNET)) != 0)
        return cannot("make", "namespaces of mounts and network", errno);
    // No mount from here on may propagate to the host.
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return cannot("separate the mounts from", "the host's", errno);
    if (!plan.foreignProgram.empty()) {
        if (int rc = registerProcessorOf(plan.foreignProgram, *hasUserNamespace, plan.scratch); rc != 0)
            return rc;
    }
    for (const LimitedFolder& folder : plan.limited) {
        handles->limited.emplace_back();
        if (int rc = mountLimitedFolder(folder, &handles->limited.back()); rc != 0) return rc;
    }
    return plan.usesHostNetwork ? 0 : openPorts(plan.served, &handles->listeners);
}

}  // namespace rovusim
